// Whole jobs of a solver, with every allocation, read, write and sync failing once: the operands stay, nothing stays open, and the same job
// done again gives what it should.

#include "DatabaseSupport.h"
#include "FailNew.h"
#include "FailSystemCall.h"
#include "KVOSrvMatrixContainer.h"
#include "SparseOracle.h"

namespace
{

/// A job that can be done again and again, with what it works on.
struct Job {
    std::function<void()> run;
    std::function<void(bool isDone)> check; ///< that everything is as before the job, or as after it
};

/// A sparse matrix and a file of one format.
Job SparseFile(int exportFormat, int importFormat)
{
    struct State {
        TemporaryFolder folder{FolderWithoutDisk()};
        std::string path = folder / "matrix";
        std::unique_ptr<KVOSrvSparseMatrix> matrix;
        KVOSrvSparseMatrix read{2, 2};
    };
    auto const state = std::make_shared<State>();
    state->matrix = exportFormat == 6 ? HalfStored(Half::Random(60, 500, 1)) : RandomOracle({60, 60, 500}, 1).Matrix();
    return {[=] {
                state->matrix->Export(state->path.c_str(), exportFormat);
                state->read.Import(state->path.c_str(), importFormat);
            },
            [=, before = ContentOf(*state->matrix)](bool isDone) {
                EXPECT_EQ(ContentOf(*state->matrix), before);
                int const rows = state->read.NumberOfRows();
                EXPECT_TRUE(rows == before.rows || (!isDone && rows == 2)) << rows;
            }};
}

/// A database of its own on the disk, with two matrices of small whole numbers, so that their products have no rounding.
struct Stored {
    static constexpr int kOrder = 40;

    Stored()
    {
        database.CreateFile((folder / "test.sim").c_str(), 0);
        database.CreateContext();
        a = NewMatrix();
        b = NewMatrix();
        for (KVOSimDistributionID const& id : {a, b})
            KVOSrvDenseMatrix(id).SetRows(0, kOrder - 1, Wrapping(numbers));
    }
    KVOSimDistributionID NewMatrix() const
    {
        KVOSimContext context(database.ContextID());
        auto const members = [&] { return SimClient::Biggest(context.CreateCollection(kOrder)); };
        return KVOSrvUtilities::Create2DDistribution(members(), members(), 16, 16);
    }

    Dense numbers = Filled(kOrder, kOrder, [](int i, int j) { return (i + kOrder * j) * 7 % 23 - 11; });
    TemporaryFolder folder{FolderWithoutDisk()};
    KVOSimDatabase database;
    KVOSimDistributionID a, b, c;
};

Job StoredProduct()
{
    auto const state = std::make_shared<Stored>();
    return {[=] {
                KVOSrvDenseMatrix c(state->NewMatrix());
                state->c = c.DistributionID();
                KVOSrvDenseMatrix(state->a).Multiply(KVOSrvDenseMatrix(state->b), c);
            },
            [=](bool isDone) {
                for (KVOSimDistributionID const& id : {state->a, state->b})
                    ExpectSame(KVOSrvDenseMatrix(id), state->numbers);
                if (isDone)
                    ExpectSame(KVOSrvDenseMatrix(state->c), state->numbers * state->numbers, 0.25);
            }};
}

Job Container()
{
    return {[] {
                KVOSrvMatrixContainer container;
                try {
                    container.Create(1, 30, 30, 8, 8);
                } catch (...) {
                    EXPECT_FALSE(container.IsMember(1));
                    throw;
                }
                KVOSrvMatrix const values = RandomMatrix(30, 30);
                container.Get(1).SetRows(0, 29, values);
                ExpectSame(container.Get(1), Dense(values));
                container.Close();
            },
            [](bool) {
                for (auto const& file : std::filesystem::directory_iterator(std::filesystem::current_path()))
                    EXPECT_FALSE(file.path().filename().string().starts_with("KVOSrvMatrixContainer")) << file.path();
            }};
}

std::ptrdiff_t OpenDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

} // namespace

TEST(FaultSweep, OfWholeJobsLosesNothingAndLeavesNothingOpen)
{
    std::pair<char const*, std::function<Job()>> const jobs[] = {{"text file", std::bind(SparseFile, 3, 2)},
                                                                 {"chunked file", std::bind(SparseFile, 6, 1)},
                                                                 {"dense file", std::bind(SparseFile, 7, 7)},
                                                                 {"product", StoredProduct},
                                                                 {"container", Container}};
    std::ptrdiff_t open = 0;
    int swept = 0;
    for (auto const& [name, make] : jobs)
        for (FailingCalls const& calls :
             {Allocations(), News(), SystemCalls(SystemCall::Read), SystemCalls(SystemCall::Write), SystemCalls(SystemCall::Sync)}) {
            SCOPED_TRACE(name);
            int rounds = 0;
            int const failures = FailEach(
                calls, make, [](Job const& job) { job.run(); },
                [&](Job& job, bool threw) {
                    job.check(!threw);
                    job.run();
                    job.check(true);
                    job = {};
                    if (rounds++ == 0)
                        open = OpenDescriptors();
                    EXPECT_EQ(OpenDescriptors(), open);
                });
            RecordProperty(std::string(name) + ", " + calls.name, std::to_string(failures) + " of " + std::to_string(rounds - 1));
            swept += rounds - 1;
        }
    RecordProperty("calls", swept);
    EXPECT_GT(swept, 200);
}
