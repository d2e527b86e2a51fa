// Titles of matrices: in the library, and as any reader of HDF5 sees them.

#include "FailSystemCall.h"
#include "SimClient.h"

#include <hdf5.h>
#include <map>
#include <set>

using namespace SimClient;

namespace
{

using Attributes = std::map<std::string, std::string>;

Attributes AttributesOf(std::string const& path, std::string const& object)
{
    Attributes result;
    hid_t const file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), opened = H5Oopen(file, object.c_str(), H5P_DEFAULT);
    for (int i = 0; opened >= 0 && i < H5Aget_num_attrs(opened); ++i) {
        hid_t const attribute = H5Aopen_idx(opened, static_cast<unsigned>(i)), type = H5Aget_type(attribute);
        char name[64];
        H5Aget_name(attribute, sizeof name, name);
        std::string text(H5Tget_size(type), '\0');
        std::int64_t number = 0;
        if (H5Tget_class(type) == H5T_STRING)
            H5Aread(attribute, type, text.data());
        else
            H5Aread(attribute, H5T_NATIVE_INT64, &number);
        result[name] = H5Tget_class(type) == H5T_STRING ? text : std::to_string(number);
        H5Tclose(type);
        H5Aclose(attribute);
    }
    H5Oclose(opened);
    H5Fclose(file);
    return result;
}

std::set<std::string> NamesInRoot(std::string const& path)
{
    std::set<std::string> names;
    hid_t const file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    auto const take = [](hid_t, char const* name, H5L_info_t const*, void* all) {
        static_cast<std::set<std::string>*>(all)->insert(name);
        return 0;
    };
    H5Literate(file, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, take, &names);
    H5Fclose(file);
    return names;
}

class TitleTest : public DatabaseTest
{
protected:
    KVOSimDistributionID Matrix(int rows, char const* title, std::vector<int> const& chunks = {})
    {
        KVOSimContext context(database.ContextID());
        KVOSimDistributionID const id =
            MakeMatrix(context.ID(), {Biggest(context.CreateCollection(3)), Biggest(context.CreateCollection(rows))}, chunks);
        KVOSimDistribution(id).SetTitle(title, "N/m", "spring \xc3\xa4");
        return id;
    }
    void Commit() { Reopen(); }
    static void AddDrawer(KVOSimDistributionID const& id)
    {
        KVOSimTransfer transfer = NewDrawer(KVOSimDistribution(id), {Biggest(KVOSimDistribution(id).Collections()[0])}, {});
        transfer.CheckView();
        transfer.InitializePersistentDrawer();
    }
    KVOSimDistributionID Find(char const* title) { return KVOSimContext(database.ContextID()).Find(title); }
};

} // namespace

TEST_F(TitleTest, NameMatricesForTheLibraryAndForOtherReaders)
{
    Create();
    KVOSimDistributionID const first = Matrix(4, "stiffness"), second = Matrix(5, "stiffness", {2, 2}), third = Matrix(6, "M \xe2\x88\x9e");
    EXPECT_STREQ(KVOSimDistribution(second).Title(), "stiffness (2)");
    EXPECT_EQ(Find("stiffness (2)"), second);
    KVOSimDistribution(second).SetTitle("stiffness"); // again: it has its number
    EXPECT_STREQ(KVOSimDistribution(second).Title(), "stiffness (2)");
    KVOSimDistribution(third).SetTitle("mass", "kg");
    EXPECT_TRUE(Find("M \xe2\x88\x9e").IsNull());
    EXPECT_STREQ(KVOSimDistribution(first).Description(), "spring \xc3\xa4");
    Rows const half{{7}, {1}, {0, 1, 1}, {4, 5}};
    KVOSimContext context(database.ContextID());
    KVOSimCSetID const two = Biggest(context.CreateCollection(2));
    KVOSimDistributionID const sparse = half.Store(context.ID(), two, two.InColor(1));
    KVOSimDistribution(sparse).SetTitle("K");
    KVOSimDistributionID const bare = MakeMatrix(context.ID(), {two});
    Commit();
    EXPECT_EQ(Find("mass"), Again(third));
    EXPECT_STREQ(KVOSimDistribution(Again(third)).Unit(), "kg");
    EXPECT_STREQ(KVOSimDistribution(Again(bare)).Title(), "");
    EXPECT_TRUE(Find("none").IsNull() && Find("").IsNull() && Find(nullptr).IsNull());
    KVOSimDistribution(Again(third)).SetTitle("");
    KVOSimDistribution(Again(first)).SetTitle("stiffness of all", "N/m", nullptr);
    EXPECT_EQ(Find("stiffness of all"), Again(first));
    database.Close();

    EXPECT_EQ(NamesInRoot(path), (std::set<std::string>{"context_0", "stiffness of all", "stiffness (2)", "K"}));
    EXPECT_EQ(
        AttributesOf(path, "stiffness of all"),
        (Attributes{
            {"title", "stiffness of all"}, {"unit", "N/m"}, {"rows", "4"}, {"columns", "3"}, {"symmetric", "0"}, {"storage", "dense"}}));
    EXPECT_EQ(
        AttributesOf(path, "K"),
        (Attributes{
            {"title", "K"}, {"rows", "2"}, {"columns", "2"}, {"symmetric", "1"}, {"storage", "compressed rows of a triangle, diagonal"}}));
    EXPECT_EQ(AttributesOf(path, "context_0/distribution_4_drawer_0"), Attributes());
    Attributes const made = AttributesOf(path, "context_0");
    EXPECT_EQ(made.at("created").size(), 20U);
    EXPECT_EQ(made.count("version") + made.count("program"), 2U);
}

TEST_F(TitleTest, FollowTransactionsAndExtensions)
{
    Create();
    KVOSimDistributionID id = Matrix(4, "a");
    Commit();
    id = Again(id);
    KVOSimContext context(database.ContextID());
    {
        KVOSimTransaction transaction(context);
        KVOSimDistribution(id).SetTitle("b");
        KVOSimDistribution(id).SetTitle("c");
        Matrix(4, "d");
        EXPECT_TRUE(Find("b").IsNull());
        EXPECT_EQ(Find("c"), id);
        Extend(id, 1, MakeSet(Describe(id).csets[1].CollectionID(), {7, 8}));
    }
    EXPECT_EQ(Find("a"), id);
    EXPECT_TRUE(Find("c").IsNull() && Find("d").IsNull());
    KVOSimDistributionID empty, temporary;
    {
        KVOSimTransaction transaction(context);
        Extend(id, 1, MakeSet(Describe(id).csets[1].CollectionID(), {9}));
        empty = MakeDistribution(context.ID(), {context.CreateCollection(2)});
        KVOSimDistribution(empty).SetTitle("d"); // waits for a drawer
        temporary = context.CreateTempDistribution(GridOf({context.CreateCollection(2)}), KVOSimRangeType(KVOSimDouble), KVOSimTypeID());
        KVOSimDistribution(temporary).SetTitle("e");
        transaction.Commit();
    }
    EXPECT_STREQ(KVOSimDistribution(temporary).Title(), "e");
    AddDrawer(empty);
    AddDrawer(empty);
    KVOSimDistributionID const gap = MakeDistribution(context.ID(), {context.CreateCollection(3)});
    KVOSimDistributionID const bare = MakeMatrix(context.ID(), {Biggest(context.CreateCollection(2))});
    {
        KVOSimTransaction dropped(context);
        AddDrawer(gap);
        KVOSimDistribution(bare).SetTitle("never");
        KVOSimTransaction kept(context);
        AddDrawer(gap);
        KVOSimDistribution(gap).SetTitle("gap");
        kept.Commit();
    }
    Reopen();
    EXPECT_EQ(Find("gap"), Again(gap));
    database.Close();
    EXPECT_EQ(NamesInRoot(path), (std::set<std::string>{"context_0", "a", "d", "gap"}));
    EXPECT_EQ(AttributesOf(path, "a").at("rows"), "5");
    EXPECT_EQ(AttributesOf(path, "d").at("rows"), "2");
    EXPECT_EQ(AttributesOf(path, "context_0/distribution_" + std::to_string(empty.Index()) + "_drawer_1"), AttributesOf(path, "d"));
    EXPECT_EQ(AttributesOf(path, "gap").at("title"), "gap");
    EXPECT_EQ(AttributesOf(path, "context_0/distribution_" + std::to_string(bare.Index()) + "_drawer_0").count("title"), 0U);
}

TEST_F(TitleTest, AreThereAsBeforeOrAsCommittedWhenTheDiskFails)
{
    struct Work {
        TemporaryFolder folder{FolderWithoutDisk()};
        KVOSimDatabase database;
        std::unique_ptr<KVOSimTransaction> transaction;
    };
    auto const prepare = [] {
        auto work = std::make_unique<Work>();
        work->database.CreateFile((work->folder / "t.sim").c_str(), 0);
        KVOSimContextID const context = work->database.CreateContext();
        KVOSimDistributionID const old = MakeMatrix(context, {Biggest(KVOSimContext(context).CreateCollection(2))});
        KVOSimDistribution(old).SetTitle("old");
        work->database.Close();
        work->database.OpenFile((work->folder / "t.sim").c_str(), false);
        KVOSimContext again(work->database.ContextID());
        work->transaction = std::make_unique<KVOSimTransaction>(again);
        KVOSimDistribution({again.ID(), old.Index()}).SetTitle("renamed");
        KVOSimDistribution(MakeMatrix(again.ID(), {Biggest(again.CreateCollection(2))})).SetTitle("new");
        return work;
    };
    auto const run = [](std::unique_ptr<Work> const& work) { work->transaction->Commit(); };
    for (bool const again : {false, true}) {
        int const failures = FailEach(SystemCalls(SystemCall::Change), prepare, run, [&](std::unique_ptr<Work> const& work, bool threw) {
            if (threw && again)
                work->transaction->Commit();
            work->transaction.reset();
            work->database.Close();
            std::set<std::string> const names =
                threw && !again ? std::set<std::string>{"context_0", "old"} : std::set<std::string>{"context_0", "new", "renamed"};
            EXPECT_EQ(NamesInRoot(work->folder / "t.sim"), names);
            EXPECT_EQ(AttributesOf(work->folder / "t.sim", "context_0/distribution_0_drawer_0").at("title"),
                      threw && !again ? "old" : "renamed");
        });
        EXPECT_GT(failures, 3);
    }
}

TEST_F(TitleTest, RefuseWhatCannotBeAName)
{
    Create();
    KVOSimDistributionID const id = Matrix(4, "a");
    std::string const ending[] = {"the title \"a/b\" has a slash",
                                  "the title \".\" is a name that the database uses itself",
                                  "the title \"context_9\" is a name that the database uses itself",
                                  "a text is not UTF-8",
                                  "the title has 256 bytes",
                                  "a text is not UTF-8",
                                  "a text is not UTF-8"};
    std::string const titles[] = {"a/b", ".", "context_9", "\xff", std::string(256, 'x'), "\xed\xa0\x80", "\xc0\xaf"};
    for (std::size_t i = 0; i < std::size(titles); ++i)
        ExpectFailure(ending[i], [&] { KVOSimDistribution(id).SetTitle(titles[i].c_str()); });
    EXPECT_STREQ(KVOSimDistribution(id).Title(), "a");
    KVOSimDistribution(id).SetTitle(std::string(255, 'x').c_str());
    Reopen(true);
    ExpectFailure("reading", [&] { KVOSimDistribution(Again(id)).SetTitle("b"); });
}
