#include "SimClient.h"

using namespace SimClient;
using testing::ElementsAre;
using testing::HasSubstr;

using Catalogue = DatabaseTest;

TEST_F(Catalogue, SurvivesReopening)
{
    KVOSimContextID const context = Create();
    KVOSimContextID second = database.CreateContext();
    KVOSimCollectionID const rows = KVOSimContext(context).CreateCollection(4, 7);
    KVOSimCollectionID const columns = KVOSimContext(context).CreateCollection(3), there = KVOSimContext(second).CreateCollection(5);
    KVOSimCSetID const rowSet = MakeSet(rows, {30, 10, 20, 1000000}), other = MakeSet(there, {1});
    KVOSimDistributionID const matrix = MakeMatrix(context, {Biggest(columns), rowSet}, {2, 3});
    WriteAll(matrix, Ramp(12));

    for (bool const readOnly : {false, true, false}) {
        SCOPED_TRACE(readOnly);
        Reopen(readOnly);
        KVOSimDrawer const drawer = Describe(Again(matrix));

        EXPECT_EQ(drawer.id, 0);
        EXPECT_EQ(drawer.kind, KVOSimDenseDrawer);
        EXPECT_EQ(drawer.typeKey, KVOSimDouble);
        EXPECT_THAT(ToVector(drawer.dimensionSizes), ElementsAre(3, 4));
        EXPECT_THAT(ToVector(drawer.chunkSizes), ElementsAre(2, 3));
        EXPECT_EQ(drawer.csets[0], KVOSimCSetID(Again(columns), 0));
        EXPECT_EQ(drawer.csets[1], KVOSimCSetID(Again(rows), rowSet.Index()));
        EXPECT_THAT(NumbersOf(drawer.csets[1]), ElementsAre(30, 10, 20, 1000000));
        EXPECT_EQ(KVOSimCollection(drawer.csets[1].CollectionID()).NumberOfMembers(), 4);
        EXPECT_EQ(ReadAll(Again(matrix)), Ramp(12));
        EXPECT_EQ(KVOSimContext(database.ContextID()).QueryDistributions().Size(), 1);
        ASSERT_EQ(database.QueryContexts().Size(), 2);
        EXPECT_EQ(database.QueryContexts()[0], database.ContextID());
        second = database.QueryContexts()[1];
        EXPECT_THAT(NumbersOf(Biggest(KVOSimCollectionID(second, there.Index()))), ElementsAre(0, 1, 2, 3, 4));
        EXPECT_THAT(NumbersOf(KVOSimCSetID(KVOSimCollectionID(second, there.Index()), other.Index())), ElementsAre(1));
    }
}

TEST_F(Catalogue, FailsClearlyAfterTheDatabaseWasClosed)
{
    KVOSimContextID const contextID = Create();
    KVOSimContext context(contextID);
    KVOSimCollection collection(context.CreateCollection(3));
    KVOSimCSet const set(collection.BiggestCSetID());
    KVOSimDistribution distribution(MakeMatrix(contextID, {collection.BiggestCSetID()}));
    KVOSimTransfer transfer(distribution);
    KVOSimTransaction transaction(context);
    double value = 0.0;
    transfer.SetRead();
    transfer.SetDim(0, set.ID());
    transfer.SetBuffer(0, &value, sizeof value);
    Reopen(); // the same path: what is stale must not come back to life

    KVOSimArray<KVOSimDrawer> drawers;
    std::function<void()> const calls[] = {[&] { context.CreateCollection(1); },
                                           [&] { context.QueryDistributions(); },
                                           [&] { collection.NumberOfMembers(); },
                                           [&] { set.Size(); },
                                           [&] { distribution.QueryDrawers(drawers); },
                                           [&] { distribution.SetCacheSize(1); },
                                           [&] { transfer.CheckView(); },
                                           [&] { transfer.ExecRead(); },
                                           [&] { transaction.Commit(); },
                                           [&] { KVOSimContext{contextID}; },
                                           [&] { KVOSimTransaction{context}; }};
    for (auto const& call : calls)
        EXPECT_THAT(FailureOf(call), testing::ContainsRegex("closed|not open any more"));
    transfer.AnnounceRead();
    EXPECT_FALSE(distribution.IsNull());
}

TEST_F(Catalogue, GivesColourVariantsTheirOwnDimension)
{
    KVOSimContextID const context = Create();
    KVOSimCollectionID const base = KVOSimContext(context).CreateCollection(2), variant = KVOSimCollection(base).CreateColorVariant(1);
    KVOSimCSetID const set = MakeSet(base, {5, 6});

    ExpectFailure("use a colour variant", [&] { MakeDistribution(context, {base, base}); });
    KVOSimDistributionID const id = MakeDistribution(context, {variant, base});
    // The set of the base collection, for the dimension of the variant.
    KVOSimTransfer transfer = NewDrawer(KVOSimDistribution(id), {set, set}, {});
    transfer.CheckView();
    transfer.InitializePersistentDrawer();

    for (int opened = 0; opened < 2; ++opened, Reopen()) {
        KVOSimDistributionID const found = Again(id);
        KVOSimDrawer const drawer = Describe(found);
        EXPECT_EQ(drawer.csets[0].CollectionID().Color(), 1);
        EXPECT_EQ(drawer.csets[1].CollectionID().Color(), 0);
        EXPECT_EQ(drawer.csets[0].InColor(0), drawer.csets[1]);
        EXPECT_EQ(KVOSimDistribution(found).Collections()[0].Color(), 1);
        EXPECT_THAT(NumbersOf(drawer.csets[0]), ElementsAre(5, 6));
    }
}

TEST_F(Catalogue, DropsTemporaryObjectsAtTheEndUnlessAStoredDrawerUsesThem)
{
    KVOSimContextID const context = Create();
    KVOSimCollectionID const rows = KVOSimContext(context).CreateCollection(9), columns = KVOSimContext(context).CreateCollection(2);
    int const used[] = {8, 1, 3}, unused[] = {2};
    KVOSimCSetID const usedSet = KVOSimCollection(rows).CreateTempOrderedCSet(used, 3);
    KVOSimCSetID const unusedSet = KVOSimCollection(rows).CreateTempOrderedCSet(unused, 1);
    EXPECT_EQ(KVOSimCollection(rows).CreateTempOrderedCSet(unused, 1), unusedSet) << "the same again is found, not made";
    EXPECT_LE(unusedSet.Index(), -2);
    KVOSimDistributionID const stored = MakeMatrix(context, {Biggest(columns), usedSet});

    KVOSimDistributionID const temporary = KVOSimContext(context).CreateTempDistribution(GridOf({rows}), KVOSimRangeType(KVOSimDouble),
                                                                                         KVOSimContext(context).Schema().TypeID(12));
    EXPECT_EQ(KVOSimDistribution(temporary).Type(), 12);
    NewDrawer(KVOSimDistribution(temporary), {unusedSet}, {}).InitializePersistentDrawer();
    WriteAll(temporary, {4.5});
    EXPECT_EQ(ReadAll(temporary), std::vector<double>{4.5});
    EXPECT_EQ(Describe(temporary).csets[0], unusedSet);
    EXPECT_EQ(KVOSimContext(context).QueryDistributions().Size(), 1);

    Reopen();

    EXPECT_EQ(KVOSimContext(database.ContextID()).QueryDistributions().Size(), 1);
    EXPECT_THAT(NumbersOf(Describe(Again(stored)).csets[1]), ElementsAre(8, 1, 3));
    ExpectFailure("no set", [&] { KVOSimCSet(KVOSimCSetID(Again(rows), unusedSet.Index())); });
    ExpectFailure("no distribution", [&] { KVOSimDistribution{Again(temporary)}; });
}

TEST_F(Catalogue, RefusesWhatCannotBeAndKeepsTheRest)
{
    KVOSimDatabase elsewhere;
    elsewhere.CreateFile((folder / "other.sim").c_str(), 0);
    KVOSimContextID const id = Create(), foreign = elsewhere.CreateContext();
    KVOSimContext context(id);
    KVOSimCollectionID const collection = context.CreateCollection(3), other = context.CreateCollection(3);
    KVOSimCSetID const set = MakeSet(other, {0, 1, 2});
    KVOSimGrid const grid = GridOf({collection});
    KVOSimPosition position(context);
    KVOSimDistributionID const typed = position.CreateTypedDistribution(4, grid, KVOSimRangeType(KVOSimInt32));
    KVOSimDistributionID const plain = position.CreateDistribution(grid, KVOSimRangeType(KVOSimFloat));

    ExpectFailure("the identifier is null", [] { KVOSimContext{KVOSimContextID()}; });
    ExpectFailure("null", [] { KVOSimCollection{KVOSimCollectionID()}; });
    ExpectFailure("null", [] { KVOSimCSet{KVOSimCSetID()}; });
    ExpectFailure("null", [] { KVOSimDistribution{KVOSimDistributionID()}; });
    ExpectFailure("no context 1", [&] { KVOSimContext(KVOSimContextID(id.Database(), 1)); });
    ExpectFailure("no collection 2", [&] { KVOSimCollection(KVOSimCollectionID(id, 2)); });
    ExpectFailure("colour -1", [&] { KVOSimCollection(KVOSimCollectionID(id, 1, -1)); });
    ExpectFailure("colour -1", [&] { KVOSimCollection(collection).CreateColorVariant(-1); });
    ExpectFailure("no set 7", [&] { KVOSimCSet(KVOSimCSetID(collection, 7)); });
    ExpectFailure("no set 1 in collection 0", [&] { KVOSimCSet(KVOSimCSetID(collection, set.Index())); });
    ExpectFailure(path + ": there is no distribution 9", [&] { KVOSimDistribution(KVOSimDistributionID(id, 9)); });
    ExpectFailure("other.sim", [&] { KVOSimDistribution(KVOSimDistributionID(foreign, typed.Index())); });
    ExpectFailure("another context or database", [&] { MakeMatrix(foreign, {Biggest(collection)}); });
    ExpectFailure("negative", [&] { position.CreateTypedDistribution(-1, grid, KVOSimRangeType(3)); });
    ExpectFailure("range type 0", [&] { MakeDistribution(id, {collection}, 0); });
    ExpectFailure("range type 9", [&] { MakeDistribution(id, {collection}, 9); });
    ExpectFailure("mask", [&] { context.CreateDistribution(grid, KVOSimRangeType(3), 0); });
    ExpectFailure("0 dimensions", [&] { MakeDistribution(id, {}); });
    ExpectFailure("-1 members", [&] { context.CreateCollection(-1); });
    ExpectFailure("negative", [&] { MakeSet(collection, {3, -1}); });
    ExpectFailure("missing", [&] { KVOSimCollection(collection).CreateOrderedCSet(nullptr, 2); });
    ExpectFailure("negative", [&] { KVOSimCollection(collection).CreateOrderedCSet(nullptr, -1); });

    Reopen();
    EXPECT_EQ(KVOSimContext(database.ContextID()).QueryDistributions().Size(), 2);
    EXPECT_EQ(KVOSimDistribution(Again(typed)).Type(), 4);
    EXPECT_EQ(KVOSimDistribution(Again(plain)).Type(), -1);
}

TEST_F(Catalogue, RefusesEveryChangeOfAReadOnlyDatabase)
{
    KVOSimContextID id = Create();
    MakeMatrix(id, {Biggest(KVOSimContext(id).CreateCollection(3))});
    Reopen(true);
    id = database.ContextID();
    KVOSimContext context(id);
    KVOSimCollectionID const collection(id, 0);
    KVOSimDistributionID const stored(id, 0);
    KVOSimTransaction transaction(context);
    KVOSimTransfer extension(KVOSimDistribution{stored});
    extension.SetWrite();
    int const more[] = {7};
    extension.SetDimExtension(0, KVOSimCollection(collection).CreateTempOrderedCSet(more, 1));

    std::function<void()> const calls[] = {[&] { database.CreateContext(); },
                                           [&] { context.CreateCollection(3); },
                                           [&] { MakeSet(collection, {1}); },
                                           [&] { MakeDistribution(id, {collection}); },
                                           [&] { context.CreateTempDistribution(GridOf({collection}), KVOSimRangeType(3), -1); },
                                           [&] { NewDrawer(KVOSimDistribution(stored), {Biggest(collection)}, {}).CheckView(); },
                                           [&] { WriteAll(stored, Ramp(3)); },
                                           [&] { extension.CheckView(); },
                                           [&] { extension.SetDimMembers(0, Biggest(collection)); },
                                           [&] { transaction.Commit(); }};
    for (auto const& call : calls)
        ExpectFailure("open for reading only", call);
    EXPECT_EQ(ReadAll(stored), std::vector<double>(3, 0.0));
}

TEST_F(Catalogue, SharesAQuarterOfTheMemoryAmongCaches)
{
    KVOSimContextID const context = Create();
    KVOSimCollectionID const collection = KVOSimContext(context).CreateCollection(3);
    std::vector<KVOSimDistribution> distributions;
    for (int i = 0; i < 4; ++i)
        distributions.emplace_back(MakeMatrix(context, {Biggest(collection)}));
    std::uint64_t const usual = distributions[0].CacheSize(), endless = std::uint64_t{1} << 62;

    distributions[0].SetCacheSize(endless);
    std::uint64_t const most = distributions[0].CacheSize();
    distributions[1].SetCacheSize(most - 1000);
    distributions[2].SetCacheSize(endless);
    distributions[3].SetCacheSize(endless);

    EXPECT_GT(most, usual);
    EXPECT_LE(most, static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) / 8);
    EXPECT_EQ(distributions[1].CacheSize(), most - 1000);
    EXPECT_EQ(distributions[2].CacheSize(), 1000u);
    EXPECT_EQ(distributions[3].CacheSize(), usual) << "nothing is left";
    distributions[0].ResetCacheSize();
    EXPECT_EQ(distributions[0].CacheSize(), usual);
    distributions.erase(distributions.begin() + 1); // its last object: the grant comes back
    for (std::size_t const i : {1, 2}) {
        distributions[i].SetCacheSize(endless);
        EXPECT_EQ(distributions[i].CacheSize(), most);
    }
}

TEST_F(Catalogue, OpensOneFileAtATimeAndOnlyDatabases)
{
    KVOSimDatabase other;
    Create();
    ExpectFailure("open already", [&] { database.CreateFile((folder / "x.sim").c_str(), 0); });
    ExpectFailure("open already", [&] { database.OpenFile(path.c_str(), true); });
    ExpectFailure("path is empty", [&] { other.CreateFile("", 0); });
    ExpectFailure("flags", [&] { other.CreateFile((folder / "x.sim").c_str(), 1); });
    EXPECT_FALSE(std::filesystem::exists(folder / "x.sim"));
    ExpectFailure("no database is open", [&] { other.CreateContext(); });
    EXPECT_TRUE(other.ContextID().IsNull());

    database.Close();
    database.Close();
    EXPECT_FALSE(database.IsOpen());
    EXPECT_TRUE(database.ContextID().IsNull());
    other.OpenFile(path.c_str(), false);
    EXPECT_FALSE(other.ContextID().IsNull());
}
