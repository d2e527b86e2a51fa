#include "LimitedMalloc.h"
#include "SimClient.h"

#include <hdf5.h>

// What a database does when the process has no memory left: HDF5's own allocations never are the ones that fail, since it would crash or
// stay broken, and the file holds what was committed.

namespace
{

using namespace SimClient;

constexpr int kCommits = 3, kMatrices = 8, kGrowth = 40;

std::vector<int> Numbers(int count, int first = 0)
{
    std::vector<int> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

/// A database that is made, grows by commits, and is read: step by step, so that a test can take the memory in between.
struct Workload {
    std::string path;
    int commits = 0; ///< that have returned

    static void RequireCommitted(bool isThere)
    {
        if (!isThere)
            throw std::logic_error("not what was committed");
    }

    /// @param before  called before each step
    template<class Before>
    void Run(Before const& before)
    {
        commits = 0;
        unlink(path.c_str()); // takes no memory
        KVOSimDatabase database;
        before();
        database.CreateFile(path.c_str(), 0);
        before();
        KVOSimContextID const id = database.CreateContext();
        while (commits < kCommits) {
            before();
            KVOSimContext context(id);
            KVOSimTransaction transaction(context);
            Change(context, before);
            before();
            transaction.Commit();
            ++commits;
        }
        before();
        database.Close();
        before();
        Check(kCommits, before);
    }

    /// Opens the database and reads what `expected` commits have left.
    template<class Before>
    void Check(int expected, Before const& before) const
    {
        KVOSimDatabase database;
        database.OpenFile(path.c_str(), true);
        before();
        if (expected == 0)
            return RequireCommitted(database.ContextID().IsNull() || KVOSimContext(database.ContextID()).QueryDistributions().IsEmpty());
        auto const stored = KVOSimContext(database.ContextID()).QueryDistributions();
        RequireCommitted(stored.Size() == 1 + kMatrices * expected);
        for (int commit = 0; commit <= expected; ++commit) {
            before();
            RequireCommitted(ReadAll(stored[commit * kMatrices]) == (commit == 0 ? Grown(expected) : Ramp(30, commit * kMatrices)));
        }
    }

private:
    /// The values of the matrix that grows: of two columns, the number of the row, so that what a commit has kept is only written again.
    static std::vector<double> Grown(int times)
    {
        std::vector<double> values;
        for (int k = 0; k < 2 * kGrowth * times; ++k)
            values.push_back(k % (kGrowth * times));
        return values;
    }

    template<class Before>
    void Change(KVOSimContext& context, Before const& before) const
    {
        KVOSimDistributionID const grown(context.ID(), 0);
        if (commits == 0)
            MakeMatrix(context.ID(), {Biggest(context.CreateCollection(2)), MakeSet(context.CreateCollection(1000), Numbers(kGrowth))},
                       {1, 16});
        before();
        if (commits > 0)
            Extend(grown, 1, MakeSet(Describe(grown).csets[1].CollectionID(), Numbers(kGrowth, kGrowth * commits)));
        before();
        WriteAll(grown, Grown(commits + 1));
        for (int k = 1; k <= kMatrices; ++k) {
            before();
            KVOSimCSetID const set = MakeSet(context.CreateCollection(50), Numbers(30));
            WriteAll(MakeMatrix(context.ID(), {set}, k % 2 == 0 ? std::vector<int>{7} : std::vector<int>{}),
                     Ramp(30, commits * kMatrices + k));
        }
    }
};

class SimMemory : public testing::Test
{
protected:
    // Runs the workload, which is short of memory as `before` (called before each step) makes it, and then another with all.
    template<class Before>
    void ExpectCleanEnd(Before const& before)
    {
        try {
            workload.Run(before);
        } catch (KVOBasException const&) {
            ++failures;
        } catch (std::bad_alloc const&) {
            ++failures;
        }
        LimitedMalloc::Allow(SIZE_MAX);
        EXPECT_EQ(LimitedMalloc::RefusedTo("libhdf5"), 0u) << "of " << LimitedMalloc::Refused();
        if (std::filesystem::exists(path))
            EXPECT_NO_THROW(workload.Check(workload.commits, [] {}));
        else
            EXPECT_EQ(workload.commits, 0);
        ASSERT_NO_THROW(Workload{path}.Run([] {})) << "the failure has left something broken";
    }

    TemporaryFolder const folder{FolderWithoutDisk()};
    std::string const path = folder / "memory.sim";
    Workload workload{path};
    int failures = 0;
};

// Limits of all that the workload takes, a little more each time, until it has enough.
TEST_F(SimMemory, EveryLimitFailsCleanly)
{
    workload.Run([] {}); // what is allocated once for the process
    for (int limits = 0; failures == limits && !HasFailure(); ++limits) {
        SCOPED_TRACE(limits);
        LimitedMalloc::Allow(LimitedMalloc::Live() + 9973u * static_cast<std::size_t>(limits));
        ExpectCleanEnd([] {});
    }
    std::printf("%d limits too low\n", failures);
    EXPECT_GT(failures, 20);
}

// The host has taken all memory but a little between two calls: what is open is closed with what was kept back.
TEST_F(SimMemory, NoMemoryBetweenTwoCallsFailsCleanly)
{
    int steps = 0;
    workload.Run([&] { ++steps; });

    for (std::size_t const left : {0, 20'000, 700'000})
        for (int step = 0; step < steps; ++step) {
            SCOPED_TRACE(std::to_string(left) + " bytes left in step " + std::to_string(step));
            int next = 0;
            ExpectCleanEnd([&] {
                if (next++ == step)
                    LimitedMalloc::Allow(LimitedMalloc::Live() + left, false);
            });
            if (HasFailure())
                return;
        }
    EXPECT_GT(failures, 2 * steps);
}

// Closing needs memory for the catalogue that nobody has committed: what was kept back for it, since there is no other.
TEST_F(SimMemory, ClosesWithoutMemory)
{
    for (int const matrices : {1, 100})
        for (bool const scratch : {false, true}) {
            SCOPED_TRACE(std::to_string(matrices) + (scratch ? " matrices, scratch" : " matrices"));
            unlink(path.c_str());
            {
                KVOSimDatabase database;
                if (scratch)
                    database.SetScratch();
                database.CreateFile(path.c_str(), 0);
                KVOSimContext context(database.CreateContext());
                for (int k = 0; k < matrices; ++k)
                    WriteAll(MakeMatrix(context.ID(), {MakeSet(context.CreateCollection(500), Numbers(400))}, {2}), Ramp(400));
                H5garbage_collect(); // what HDF5 has released and kept for itself
                LimitedMalloc::Allow(LimitedMalloc::Live(), false);
            }
            LimitedMalloc::Allow(SIZE_MAX);

            EXPECT_EQ(LimitedMalloc::RefusedTo("libhdf5"), 0u);
            if (!scratch) {
                EXPECT_NO_THROW(workload.Check(0, [] {}));
            }
            EXPECT_NO_THROW(workload.Run([] {}));
        }
}

} // namespace
