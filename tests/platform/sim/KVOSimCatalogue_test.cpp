#include "SimClient.h"

using namespace SimClient;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

class Catalogue : public DatabaseTest
{
};

} // namespace

TEST_F(Catalogue, SurvivesReopening)
{
    KVOSimDatabase database;
    KVOSimContextID context = Create(database);
    KVOSimCollectionID const rows = KVOSimContext(context).CreateCollection(4, 7);
    KVOSimCollectionID const columns = KVOSimContext(context).CreateCollection(3);
    KVOSimCSetID const rowSet = MakeSet(rows, {30, 10, 20, 1000000});
    int const matrix = MakeMatrix(context, {Biggest(columns), rowSet}, {2, 3}).Index();
    WriteAll(KVOSimDistributionID(context, matrix), Ramp(12));

    for (bool const readOnly : {false, true, false}) {
        SCOPED_TRACE(readOnly);
        Reopen(database, readOnly);
        context = database.ContextID();
        KVOSimDistributionID const id(context, matrix);
        KVOSimDrawer const drawer = Describe(id);

        EXPECT_EQ(drawer.id, 0);
        EXPECT_EQ(drawer.kind, KVOSimDenseDrawer);
        EXPECT_EQ(drawer.typeKey, KVOSimDouble);
        EXPECT_THAT(List(drawer.dimensionSizes), ElementsAre(3, 4));
        EXPECT_THAT(List(drawer.chunkSizes), ElementsAre(2, 3));
        EXPECT_EQ(drawer.csets[0], KVOSimCSetID(KVOSimCollectionID(context, columns.Index()), 0));
        EXPECT_EQ(drawer.csets[1], KVOSimCSetID(KVOSimCollectionID(context, rows.Index()), rowSet.Index()));
        EXPECT_THAT(Members(drawer.csets[1]), ElementsAre(30, 10, 20, 1000000));
        EXPECT_EQ(KVOSimCollection(drawer.csets[1].CollectionID()).NumberOfMembers(), 4);
        EXPECT_EQ(ReadAll(id), Ramp(12));
        EXPECT_EQ(KVOSimContext(context).QueryDistributions().Size(), 1);
    }
}

TEST_F(Catalogue, KeepsContextsCollectionsAndSetsApart)
{
    KVOSimDatabase database;
    KVOSimContextID const first = Create(database), second = database.CreateContext();
    KVOSimCollectionID const here = KVOSimContext(first).CreateCollection(2), there = KVOSimContext(second).CreateCollection(5);
    KVOSimCSetID const set = MakeSet(here, {4, 2});
    KVOSimCSetID const other = MakeSet(there, {1});
    Reopen(database);

    EXPECT_EQ(database.QueryContexts().Size(), 2);
    EXPECT_EQ(database.ContextID(), database.QueryContexts()[0]);
    KVOSimContextID const firstAgain = database.QueryContexts()[0], secondAgain = database.QueryContexts()[1];
    EXPECT_THAT(Members(KVOSimCSetID(KVOSimCollectionID(firstAgain, here.Index()), set.Index())), ElementsAre(4, 2));
    EXPECT_THAT(Members(Biggest(KVOSimCollectionID(secondAgain, there.Index()))), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(Members(KVOSimCSetID(KVOSimCollectionID(secondAgain, there.Index()), other.Index())), ElementsAre(1));
}

TEST_F(Catalogue, RefusesIdentifiersThatNameNothing)
{
    KVOSimDatabase database, elsewhere;
    KVOSimContextID const context = Create(database);
    elsewhere.CreateFile((folder / "other.sim").c_str(), 0);
    KVOSimContextID const foreign = elsewhere.CreateContext();
    KVOSimCollectionID const collection = KVOSimContext(context).CreateCollection(3), other = KVOSimContext(context).CreateCollection(3);
    KVOSimCSetID const set = MakeSet(other, {0, 1, 2});
    KVOSimDistributionID const matrix = MakeMatrix(context, {Biggest(collection)});

    EXPECT_THAT(FailureOf([] { KVOSimContext{KVOSimContextID()}; }), HasSubstr("the identifier is null"));
    EXPECT_THAT(FailureOf([] { KVOSimCollection{KVOSimCollectionID()}; }), HasSubstr("null"));
    EXPECT_THAT(FailureOf([] { KVOSimCSet{KVOSimCSetID()}; }), HasSubstr("null"));
    EXPECT_THAT(FailureOf([] { KVOSimDistribution{KVOSimDistributionID()}; }), HasSubstr("null"));
    EXPECT_THAT(FailureOf([&] { KVOSimContext(KVOSimContextID(context.Database(), 1)); }), HasSubstr("no context 1"));
    EXPECT_THAT(FailureOf([&] { KVOSimCollection(KVOSimCollectionID(context, 2)); }), HasSubstr("no collection 2"));
    EXPECT_THAT(FailureOf([&] { KVOSimCollection(KVOSimCollectionID(context, 1, -1)); }), HasSubstr("colour -1"));
    EXPECT_THAT(FailureOf([&] { KVOSimCSet(KVOSimCSetID(collection, 7)); }), HasSubstr("no set 7"));
    EXPECT_THAT(FailureOf([&] { KVOSimCSet(KVOSimCSetID(collection, set.Index())); }), HasSubstr("no set 1 in collection 0"));
    EXPECT_THAT(FailureOf([&] { KVOSimDistribution(KVOSimDistributionID(context, 9)); }), HasSubstr(path + ": there is no distribution 9"));
    EXPECT_THAT(FailureOf([&] { KVOSimDistribution(KVOSimDistributionID(foreign, matrix.Index())); }), HasSubstr("other.sim"));
    EXPECT_THAT(FailureOf([&] { MakeMatrix(foreign, {Biggest(collection)}); }), HasSubstr("another context or database"));
    EXPECT_THAT(FailureOf([&] { KVOSimCollection(collection).CreateColorVariant(-1); }), HasSubstr("colour -1"));
}

TEST_F(Catalogue, FailsClearlyAfterTheDatabaseWasClosed)
{
    KVOSimDatabase database;
    KVOSimContextID const contextID = Create(database);
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
    Reopen(database); // the same path: what is stale must not come back to life

    KVOSimArray<KVOSimDrawer> drawers;
    for (std::string const& text :
         {FailureOf([&] { context.CreateCollection(1); }), FailureOf([&] { context.QueryDistributions(); }),
          FailureOf([&] { collection.NumberOfMembers(); }), FailureOf([&] { set.Size(); }),
          FailureOf([&] { distribution.QueryDrawers(drawers); }), FailureOf([&] { distribution.SetCacheSize(1); }),
          FailureOf([&] { transfer.CheckView(); }), FailureOf([&] { transfer.ExecRead(); }), FailureOf([&] { transaction.Commit(); }),
          FailureOf([&] { KVOSimContext{contextID}; }), FailureOf([&] { KVOSimTransaction{context}; })})
        EXPECT_THAT(text, testing::AnyOf(HasSubstr("closed"), HasSubstr("not open any more")));
    transfer.AnnounceRead();
    EXPECT_FALSE(distribution.IsNull());
}

TEST_F(Catalogue, GivesColourVariantsTheirOwnDimension)
{
    KVOSimDatabase database;
    KVOSimContextID const context = Create(database);
    KVOSimCollectionID const base = KVOSimContext(context).CreateCollection(2), variant = KVOSimCollection(base).CreateColorVariant(1);
    KVOSimCSetID const set = MakeSet(base, {5, 6});
    KVOSimArray<KVOSimCollectionID> twice, both;
    twice.Append(base), twice.Append(base), both.Append(variant), both.Append(base);

    EXPECT_THAT(FailureOf([&] { KVOSimContext(context).CreateDistribution(KVOSimGrid(twice), KVOSimRangeType(3), -1); }),
                HasSubstr("use a colour variant"));
    KVOSimDistributionID const id = KVOSimContext(context).CreateDistribution(KVOSimGrid(both), KVOSimRangeType(3), -1);
    // The set of the base collection, for the dimension of the variant.
    KVOSimTransfer transfer = NewDrawer(KVOSimDistribution(id), {set, set}, {});
    transfer.CheckView();
    transfer.InitializePersistentDrawer();

    for (int opened = 0; opened < 2; ++opened, Reopen(database)) {
        KVOSimDistributionID const found(database.ContextID(), id.Index());
        KVOSimDrawer const drawer = Describe(found);
        EXPECT_EQ(drawer.csets[0].CollectionID().Color(), 1);
        EXPECT_EQ(drawer.csets[1].CollectionID().Color(), 0);
        EXPECT_EQ(drawer.csets[0].InColor(0), drawer.csets[1]);
        EXPECT_EQ(KVOSimDistribution(found).Collections()[0].Color(), 1);
        EXPECT_THAT(Members(drawer.csets[0]), ElementsAre(5, 6));
    }
}

TEST_F(Catalogue, DropsTemporaryObjectsAtTheEndUnlessAStoredDrawerUsesThem)
{
    KVOSimDatabase database;
    KVOSimContextID const context = Create(database);
    KVOSimCollectionID const rows = KVOSimContext(context).CreateCollection(9), columns = KVOSimContext(context).CreateCollection(2);
    int const used[] = {8, 1, 3}, unused[] = {2};
    KVOSimCSetID const usedSet = KVOSimCollection(rows).CreateTempOrderedCSet(used, 3);
    KVOSimCSetID const unusedSet = KVOSimCollection(rows).CreateTempOrderedCSet(unused, 1);
    EXPECT_EQ(KVOSimCollection(rows).CreateTempOrderedCSet(unused, 1), unusedSet) << "the same again is found, not made";
    EXPECT_LE(unusedSet.Index(), -2);
    KVOSimDistributionID const stored = MakeMatrix(context, {Biggest(columns), usedSet});

    KVOSimArray<KVOSimCollectionID> grid;
    grid.Append(rows);
    KVOSimDistributionID const temporary = KVOSimContext(context).CreateTempDistribution(KVOSimGrid(grid), KVOSimRangeType(KVOSimDouble),
                                                                                         KVOSimContext(context).Schema().TypeID(12));
    EXPECT_EQ(KVOSimDistribution(temporary).Type(), 12);
    NewDrawer(KVOSimDistribution(temporary), {unusedSet}, {}).InitializePersistentDrawer();
    WriteAll(temporary, {4.5});
    EXPECT_EQ(ReadAll(temporary), std::vector<double>{4.5});
    EXPECT_EQ(Describe(temporary).csets[0], unusedSet);
    EXPECT_EQ(KVOSimContext(context).QueryDistributions().Size(), 1);

    Reopen(database);

    KVOSimContextID const again = database.ContextID();
    EXPECT_EQ(KVOSimContext(again).QueryDistributions().Size(), 1);
    EXPECT_THAT(Members(Describe(KVOSimDistributionID(again, stored.Index())).csets[1]), ElementsAre(8, 1, 3));
    EXPECT_THAT(FailureOf([&] { KVOSimCSet(KVOSimCSetID(KVOSimCollectionID(again, rows.Index()), unusedSet.Index())); }),
                HasSubstr("no set"));
    EXPECT_THAT(FailureOf([&] { KVOSimDistribution(KVOSimDistributionID(again, temporary.Index())); }), HasSubstr("no distribution"));
}

TEST_F(Catalogue, KeepsTypesAndRefusesWhatCannotBe)
{
    KVOSimDatabase database;
    KVOSimContext context(Create(database));
    KVOSimArray<KVOSimCollectionID> grid;
    grid.Append(context.CreateCollection(3));
    KVOSimPosition position(context);
    KVOSimDistributionID const typed = position.CreateTypedDistribution(4, KVOSimGrid(grid), KVOSimRangeType(KVOSimInt32));
    KVOSimDistributionID const plain = position.CreateDistribution(KVOSimGrid(grid), KVOSimRangeType(KVOSimFloat));

    EXPECT_THAT(FailureOf([&] { position.CreateTypedDistribution(-1, KVOSimGrid(grid), KVOSimRangeType(3)); }), HasSubstr("negative"));
    EXPECT_THAT(FailureOf([&] { context.CreateDistribution(KVOSimGrid(grid), KVOSimRangeType(0), -1); }), HasSubstr("range type 0"));
    EXPECT_THAT(FailureOf([&] { context.CreateDistribution(KVOSimGrid(grid), KVOSimRangeType(9), -1); }), HasSubstr("range type 9"));
    EXPECT_THAT(FailureOf([&] { context.CreateDistribution(KVOSimGrid(grid), KVOSimRangeType(3), 0); }), HasSubstr("mask"));
    EXPECT_THAT(FailureOf([&] { context.CreateDistribution(KVOSimGrid({}), KVOSimRangeType(3), -1); }), HasSubstr("0 dimensions"));
    EXPECT_THAT(FailureOf([&] { context.CreateCollection(-1); }), HasSubstr("-1 members"));
    EXPECT_THAT(FailureOf([&] { MakeSet(grid[0], {3, -1}); }), HasSubstr("negative"));
    EXPECT_THAT(FailureOf([&] { KVOSimCollection(grid[0]).CreateOrderedCSet(nullptr, 2); }), HasSubstr("missing"));
    EXPECT_THAT(FailureOf([&] { KVOSimCollection(grid[0]).CreateOrderedCSet(nullptr, -1); }), HasSubstr("negative"));

    Reopen(database);
    KVOSimContextID const again = database.ContextID();
    EXPECT_EQ(KVOSimContext(again).QueryDistributions().Size(), 2);
    EXPECT_EQ(KVOSimDistribution(KVOSimDistributionID(again, typed.Index())).Type(), 4);
    EXPECT_EQ(KVOSimDistribution(KVOSimDistributionID(again, plain.Index())).Type(), -1);
}

TEST_F(Catalogue, RefusesEveryChangeOfAReadOnlyDatabase)
{
    KVOSimDatabase database;
    KVOSimContextID id = Create(database);
    KVOSimCollectionID collection = KVOSimContext(id).CreateCollection(3);
    int const matrix = MakeMatrix(id, {Biggest(collection)}).Index();
    Reopen(database, true);
    id = database.ContextID();
    KVOSimContext context(id);
    collection = KVOSimCollectionID(id, 0);
    KVOSimDistributionID const stored(id, matrix);
    KVOSimArray<KVOSimCollectionID> grid;
    grid.Append(collection);
    KVOSimTransaction transaction(context);
    KVOSimTransfer extension(KVOSimDistribution{stored});
    extension.SetWrite();
    int const more[] = {7};
    extension.SetDimExtension(0, KVOSimCollection(collection).CreateTempOrderedCSet(more, 1));

    for (std::string const& text :
         {FailureOf([&] { database.CreateContext(); }), FailureOf([&] { context.CreateCollection(3); }),
          FailureOf([&] { MakeSet(collection, {1}); }),
          FailureOf([&] { context.CreateDistribution(KVOSimGrid(grid), KVOSimRangeType(3), -1); }),
          FailureOf([&] { context.CreateTempDistribution(KVOSimGrid(grid), KVOSimRangeType(3), -1); }),
          FailureOf([&] { NewDrawer(KVOSimDistribution(stored), {Biggest(collection)}, {}).CheckView(); }), FailureOf([&] {
              WriteAll(stored, {1, 2, 3});
          }),
          FailureOf([&] { extension.CheckView(); }), FailureOf([&] { extension.SetDimMembers(0, Biggest(collection)); }),
          FailureOf([&] { transaction.Commit(); })})
        EXPECT_THAT(text, HasSubstr("open for reading only"));
    EXPECT_EQ(ReadAll(stored), std::vector<double>(3, 0.0));
}

TEST_F(Catalogue, SharesAQuarterOfTheMemoryAmongCaches)
{
    KVOSimDatabase database;
    KVOSimContextID const context = Create(database);
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
    distributions[1].SetCacheSize(endless);
    distributions[2].SetCacheSize(endless);
    EXPECT_EQ(distributions[1].CacheSize(), most);
    EXPECT_EQ(distributions[2].CacheSize(), most);
}

TEST_F(Catalogue, OpensOneFileAtATimeAndOnlyDatabases)
{
    KVOSimDatabase database, other;
    Create(database);
    EXPECT_THAT(FailureOf([&] { database.CreateFile((folder / "x.sim").c_str(), 0); }), HasSubstr("open already"));
    EXPECT_THAT(FailureOf([&] { database.OpenFile(path.c_str(), true); }), HasSubstr("open already"));
    EXPECT_THAT(FailureOf([&] { other.CreateFile("", 0); }), HasSubstr("path is empty"));
    EXPECT_THAT(FailureOf([&] { other.CreateFile((folder / "x.sim").c_str(), 1); }), HasSubstr("flags"));
    EXPECT_FALSE(std::filesystem::exists(folder / "x.sim"));
    EXPECT_THAT(FailureOf([&] { other.CreateContext(); }), HasSubstr("no database is open"));
    EXPECT_TRUE(other.ContextID().IsNull());

    WriteFile(folder / "text.sim", "no database at all");
    EXPECT_THAT(FailureOf([&] { other.OpenFile((folder / "text.sim").c_str(), true); }), HasSubstr("text.sim"));
    EXPECT_FALSE(other.IsOpen());

    database.Close();
    database.Close();
    EXPECT_FALSE(database.IsOpen());
    EXPECT_TRUE(database.ContextID().IsNull());
    other.OpenFile(path.c_str(), false);
    EXPECT_FALSE(other.ContextID().IsNull());
}
