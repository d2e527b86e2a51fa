#include "KVOSimFaults.h"
#include "SimClient.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <hdf5.h>
#include <sys/wait.h>

using namespace SimClient;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

class Commit : public DatabaseTest
{
protected:
    ~Commit() override { KVOSimFaults::Disarm(); }

    /// A stored matrix of 3 values, with numbers of its own.
    void MakeFile() const
    {
        std::filesystem::remove(path);
        KVOSimDatabase database;
        KVOSimContextID const context = Create(database);
        KVOSimCollectionID const collection = KVOSimContext(context).CreateCollection(3);
        WriteAll(MakeMatrix(context, {MakeSet(collection, {10, 11, 12})}, {2}), Ramp(3));
        database.Close();
    }
};

/// What another program finds in the closed file: the sizes of a dataset, none when it is missing.
std::vector<hsize_t> SizesInFile(std::string const& path, char const* name)
{
    hid_t const file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    std::vector<hsize_t> sizes;
    if (H5Lexists(file, name, H5P_DEFAULT) > 0) {
        hid_t const dataset = H5Dopen2(file, name, H5P_DEFAULT), space = H5Dget_space(dataset);
        sizes.resize(static_cast<std::size_t>(H5Sget_simple_extent_ndims(space)));
        H5Sget_simple_extent_dims(space, sizes.data(), nullptr);
        H5Sclose(space);
        H5Dclose(dataset);
    }
    H5Fclose(file);
    return sizes;
}

void Change(KVOSimContextID const& context)
{
    KVOSimDistributionID const stored(context, 0);
    KVOSimCollectionID const collection(context, 0);
    KVOSimTransfer transfer{KVOSimDistribution(stored)};
    transfer.SetWrite();
    transfer.SetDimExtension(0, MakeSet(collection, {20}));
    transfer.InitializeExtension();
    WriteAll(MakeMatrix(context, {MakeSet(collection, {7, 8})}, {1}), Ramp(2));
    WriteAll(MakeMatrix(context, {MakeSet(collection, {9})}), Ramp(1));
}

} // namespace

// Every call that a commit makes fails once: afterwards the transaction can be committed again, or dropped.
TEST_F(Commit, LosesNothingWhenItFails)
{
    for (bool const again : {true, false}) {
        SCOPED_TRACE(again);
        bool failed = true;
        for (int calls = 0; failed; ++calls) {
            SCOPED_TRACE(calls);
            ASSERT_LT(calls, 1000);
            MakeFile();
            KVOSimDatabase database;
            database.OpenFile(path.c_str(), false);
            KVOSimContext context(database.ContextID());
            {
                KVOSimTransaction transaction(context);
                Change(context.ID());
                KVOSimFaults::FailAfter(calls, ENOSPC);
                std::string const failure = FailureOf([&] { transaction.Commit(); });
                failed = failure != "no failure";
                KVOSimFaults::Disarm();
                EXPECT_THAT(failure, testing::AnyOf("no failure", HasSubstr("test.sim")));
                EXPECT_EQ(ReadAll(KVOSimDistributionID(context.ID(), 2)), Ramp(1));
                if (again)
                    transaction.Commit();
            }
            bool const kept = again || !failed;

            database.Close();
            EXPECT_THAT(SizesInFile(path, "context_0/distribution_0_drawer_0"), ElementsAre(kept ? 4 : 3));
            EXPECT_EQ(SizesInFile(path, "context_0/distribution_1_drawer_0").size(), kept ? 1 : 0);
            EXPECT_THAT(SizesInFile(path, "context_0/sets"), ElementsAre(kept ? 5 : 1));
            database.OpenFile(path.c_str(), false);
            for (int opened = 0; opened < 2; ++opened, Reopen(database)) {
                KVOSimContextID const found = database.ContextID();
                EXPECT_EQ(KVOSimContext(found).QueryDistributions().Size(), kept ? 3 : 1);
                std::vector<double> expected = Ramp(3);
                if (kept) {
                    expected.push_back(0.0);
                    EXPECT_EQ(ReadAll(KVOSimDistributionID(found, 1)), Ramp(2));
                    EXPECT_THAT(Members(Describe(KVOSimDistributionID(found, 1)).csets[0]), ElementsAre(7, 8));
                }
                EXPECT_EQ(ReadAll(KVOSimDistributionID(found, 0)), expected);
            }
        }
    }
}

// A child that is killed at each of its writes in turn: what its commits returned from is there.
TEST_F(Commit, SurvivesADeathAtEveryMoment)
{
    constexpr int kCommits = 3;
    bool died = true;
    for (int calls = 0; died; ++calls) {
        SCOPED_TRACE(calls);
        ASSERT_LT(calls, 1000);
        MakeFile();
        int reports[2];
        ASSERT_EQ(pipe(reports), 0);
        pid_t const child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            try {
                KVOSimDatabase database;
                database.OpenFile(path.c_str(), false);
                KVOSimContext context(database.ContextID());
                KVOSimFaults::KillAfter(calls, calls % 2 == 1);
                for (int commit = 1; commit <= kCommits; ++commit) {
                    KVOSimTransaction transaction(context);
                    WriteAll(MakeMatrix(context.ID(), {MakeSet(KVOSimCollectionID(context.ID(), 0), {commit, commit + 50})}),
                             Ramp(2, commit));
                    transaction.Commit();
                    if (write(reports[1], "c", 1) != 1)
                        _exit(3);
                }
                _exit(0); // without a Close()
            } catch (KVOSimException const&) {
                _exit(2);
            }
        }
        close(reports[1]);
        char received[kCommits + 1];
        int committed = 0;
        while (read(reports[0], received, 1) == 1)
            ++committed;
        close(reports[0]);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        died = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        ASSERT_TRUE(died || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << status;
        ASSERT_TRUE(died || committed == kCommits);

        for (bool const readOnly : {true, false}) {
            KVOSimDatabase database;
            database.OpenFile(path.c_str(), readOnly);
            KVOSimContextID const context = database.ContextID();
            int const found = KVOSimContext(context).QueryDistributions().Size() - 1;
            EXPECT_GE(found, committed);
            EXPECT_LE(found, std::min(committed + 1, kCommits)) << "the commit under way may have been complete";
            EXPECT_EQ(ReadAll(KVOSimDistributionID(context, 0)), Ramp(3));
            for (int commit = 1; commit <= found; ++commit) {
                KVOSimDistributionID const id(context, commit);
                EXPECT_EQ(ReadAll(id), Ramp(2, commit));
                EXPECT_THAT(Members(Describe(id).csets[0]), ElementsAre(commit, commit + 50));
            }
        }
    }
}
