#include "ChildProcess.h"
#include "FailNew.h"
#include "SimClient.h"

#include <optional>

#include <hdf5.h>

using namespace SimClient;
using testing::ElementsAre;

namespace
{

/// A file with a stored matrix of 3 values, with numbers of its own.
class Commit : public DatabaseTest
{
protected:
    void MakeFile()
    {
        std::filesystem::remove(path);
        KVOSimContextID const context = Create();
        KVOSimCollectionID const collection = KVOSimContext(context).CreateCollection(3);
        WriteAll(MakeMatrix(context, {MakeSet(collection, {10, 11, 12})}, {2}), Ramp(3));
        database.Close();
    }
    std::string CopyOfFiles() const
    {
        std::string const copy = folder / "copy.sim";
        for (char const* const end : {"", ".journal"}) {
            std::filesystem::remove(copy + end);
            if (std::filesystem::exists(path + end))
                std::filesystem::copy_file(path + end, copy + end);
        }
        return copy;
    }
};

/// What another program finds in the closed file: the size of a dataset of one dimension, 0 when it is missing.
hssize_t SizeInFile(std::string const& path, std::string const& name)
{
    hid_t const file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    hssize_t size = 0;
    if (H5Lexists(file, ("context_0/" + name).c_str(), H5P_DEFAULT) > 0) {
        hid_t const dataset = H5Dopen2(file, ("context_0/" + name).c_str(), H5P_DEFAULT), space = H5Dget_space(dataset);
        size = H5Sget_simple_extent_npoints(space);
        H5Sclose(space);
        H5Dclose(dataset);
    }
    H5Fclose(file);
    return size;
}

/// That the database holds all of the session's commit, or nothing.
void ExpectState(std::string const& path, testing::Matcher<bool> const& isKept)
{
    KVOSimDatabase database;
    database.OpenFile(path.c_str(), false);
    KVOSimContextID const id = database.ContextID();
    bool const kept = KVOSimContext(id).QueryDistributions().Size() > 1;
    EXPECT_THAT(kept, isKept);
    EXPECT_EQ(KVOSimContext(id).QueryDistributions().Size(), kept ? 3 : 1);
    EXPECT_EQ(ReadAll(KVOSimDistributionID(id, 0)), kept ? (std::vector<double>{1, 2, 3, 0}) : Ramp(3));
    if (!kept)
        return;
    EXPECT_EQ(ReadAll(KVOSimDistributionID(id, 1)), Ramp(2));
    EXPECT_THAT(NumbersOf(Describe(KVOSimDistributionID(id, 1)).csets[0]), ElementsAre(7, 8));
    EXPECT_EQ(ReadAll(KVOSimDistributionID(id, 2)), Ramp(1));
}

/// An open transaction that has extended the stored matrix and made two others.
struct Session {
    explicit Session(std::string const& path)
    {
        database.OpenFile(path.c_str(), false);
        KVOSimContextID const id = database.ContextID();
        transaction.emplace(context.emplace(id));
        KVOSimCollectionID const collection(id, 0);
        Extend(KVOSimDistributionID(id, 0), 0, MakeSet(collection, {20}));
        WriteAll(MakeMatrix(id, {MakeSet(collection, {7, 8})}, {1}), Ramp(2));
        WriteAll(MakeMatrix(id, {MakeSet(collection, {9})}), Ramp(1));
    }
    KVOSimDatabase database;
    std::optional<KVOSimContext> context;
    std::optional<KVOSimTransaction> transaction;
};

} // namespace

/// Afterwards the transaction can be committed again, or dropped.
TEST_F(Commit, IsWholeAndLosesNothingWhenItFails)
{
    auto const prepare = [&] {
        MakeFile();
        return std::make_unique<Session>(path);
    };
    auto const commit = [](std::unique_ptr<Session> const& session) { session->transaction->Commit(); };
    for (bool const again : {true, false}) {
        SCOPED_TRACE(again);
        auto const check = [&](std::unique_ptr<Session> const& session, bool threw, bool lasting) {
            std::string const left = CopyOfFiles();
            // A disk that fails for good leaves what a death at that moment leaves: all of a commit or nothing of it.
            ExpectState(left, threw ? (lasting ? testing::Matcher<bool>(testing::_) : false) : true);

            EXPECT_EQ(ReadAll(KVOSimDistributionID(session->database.ContextID(), 2)), Ramp(1));
            if (again)
                session->transaction->Commit();
            session->transaction.reset();
            session->database.Close();
            bool const kept = again || !threw;
            EXPECT_EQ(SizeInFile(path, "distribution_0_drawer_0"), kept ? 4 : 3);
            EXPECT_EQ(SizeInFile(path, "distribution_1_drawer_0"), kept ? 2 : 0);
            EXPECT_EQ(SizeInFile(path, "sets"), kept ? 5 : 1);
            for (int opened = 0; opened < 2; ++opened)
                ExpectState(path, kept);
        };
        EXPECT_GT(FailEachCall({{ENOSPC, 1, false}, {ENOSPC, 1, true}, {EIO, INT64_MAX / 2, true}}, prepare, commit, check), 20);
        int withoutMemory = 0;
        for (FailingCalls const& memory : {News(), Allocations()})
            withoutMemory += FailEach(memory, prepare, commit, [&](auto const& session, bool threw) { check(session, threw, false); });
        std::printf("%d commits without memory\n", withoutMemory);
        EXPECT_GT(withoutMemory, 50);
    }
}

// It has the parent's descriptor and memory, but not what the parent does from here on.
TEST_F(Commit, IsRefusedInAChildOfTheProcess)
{
    MakeFile();
    Session session(path);
    KVOSimContextID const id = session.database.ContextID();
    ChildProcess child([&] {
        std::string const reason = "of which this one is a child";
        ExpectFailure(reason, [&] { session.transaction->Commit(); });
        ExpectFailure(reason, [&] { WriteAll(KVOSimDistributionID(id, 0), Ramp(4, 50.0)); });
        ExpectFailure(reason, [&] { KVOSimContext(id).CreateCollection(2); });
        EXPECT_EQ(ReadAll(KVOSimDistributionID(id, 0)), (std::vector<double>{1, 2, 3, 0}));
        session.transaction.reset();
        EXPECT_EQ(FailureOf([&] { session.database.Close(); }), "no failure");
        ExpectFailure("open for writing elsewhere", [&] { KVOSimDatabase().OpenFile(path.c_str(), false); });
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.Wait(), 0);
    ExpectState(CopyOfFiles(), false);
    session.transaction->Commit();
    session.database.Close();
    ExpectState(path, true);
}
