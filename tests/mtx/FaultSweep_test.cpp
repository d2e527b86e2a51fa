// Whole jobs of a solver, with every allocation, read, write and sync failing once: the operands stay, nothing stays open, and the same job
// done again gives what it should.

#include "DatabaseSupport.h"
#include "FailNew.h"
#include "FailSystemCall.h"
#include "KVOSimTransaction.h"
#include "KVOSrvMatrixContainer.h"
#include "SparseOracle.h"

#include <functional>
#include <iterator>

namespace
{

// Small whole numbers, so that their products have no rounding.
KVOSrvMatrix Numbers(int rows, int columns)
{
    KVOSrvMatrix matrix(rows, columns, nullptr, false, false);
    for (int k = 0; k < rows * columns; ++k)
        matrix.Values()[k] = k * 7 % 23 - 11;
    return matrix;
}

/// A job that can be done again and again; its construction is what it works on.
class Job
{
public:
    virtual ~Job() = default;
    virtual void Do() = 0;
    /// That everything is as before the job, or as after it.
    virtual void Check(bool isDone) = 0;
};

using MakeJob = std::function<std::unique_ptr<Job>()>;

/// A sparse matrix and a file of one format.
class SparseFile : public Job
{
public:
    SparseFile(int exportFormat, int importFormat) : m_exportFormat(exportFormat), m_importFormat(importFormat)
    {
        if (exportFormat == 6) { // which is for half storage
            WriteFile(m_path, Half::Random(60, 500, 1).File());
            m_matrix->Import(m_path.c_str(), 6);
            m_before = ContentOf(*m_matrix);
        }
    }
    void Do() override
    {
        m_matrix->Export(m_path.c_str(), m_exportFormat);
        m_read.Import(m_path.c_str(), m_importFormat);
    }
    void Check(bool isDone) override
    {
        EXPECT_EQ(ContentOf(*m_matrix), m_before);
        Content const read = ContentOf(m_read);
        EXPECT_TRUE(read.rows == (isDone ? m_before.rows : 2) || (!isDone && read.rows == m_before.rows)) << read.rows;
    }

private:
    int m_exportFormat, m_importFormat;
    TemporaryFolder m_folder{FolderWithoutDisk()};
    std::string m_path = m_folder / "matrix";
    std::unique_ptr<KVOSrvSparseMatrix> m_matrix = RandomOracle({60, 60, 500}, 1).Matrix();
    Content m_before = ContentOf(*m_matrix);
    KVOSrvSparseMatrix m_read{2, 2};
};

/// What fails there is the platform's allocator: nothing asks another one.
class Assembly : public Job
{
public:
    void Do() override
    {
        KVOSrvSparseMatrix matrix(60, 60);
        for (KVOSrvSparseMatrixEntry const& entry : m_entries)
            matrix.AddData(entry.row, entry.column, entry.value);
        matrix.EndAssembly();
        m_sum = matrix.NumberOfNonzeros();
    }
    void Check(bool isDone) override { EXPECT_TRUE(!isDone || m_sum > 100); }

private:
    std::vector<KVOSrvSparseMatrixEntry> m_entries = RandomEntries({60, 60, 500}, 2);
    int m_sum = 0;
};

class Eigenproblem : public Job
{
public:
    void Do() override
    {
        KVOSrvMatrix values(20, 1, nullptr, false, false), vectors(20, 20, nullptr, false, false);
        m_a.SolveEigenproblemSymmetric(m_b, values, vectors);
        m_first = values.Values()[0];
    }
    void Check(bool isDone) override { EXPECT_TRUE(!isDone || std::abs(m_first - 1.0) < 1e-12) << m_first; }

private:
    static KVOSrvMatrix Diagonal(std::function<double(int)> const& entry)
    {
        KVOSrvMatrix matrix(20, 20, nullptr, true, false);
        std::generate_n(matrix.Values(), 400, [&, k = 0]() mutable { return k++ % 21 == 0 ? entry(k / 21) : 0.0; });
        return matrix;
    }
    KVOSrvMatrix m_a = Diagonal([](int i) { return 3.0 * (i + 1); }), m_b = Diagonal([](int) { return 3.0; });
    double m_first = 0.0;
};

/// A database of its own on the disk, with two matrices.
class Stored : public Job
{
public:
    Stored()
    {
        m_database.CreateFile(m_path.c_str(), 0);
        m_database.CreateContext();
        m_a = Store();
        m_b = Store();
    }

protected:
    static constexpr int kOrder = 40, kChunk = 16;

    KVOSimCSetID Members(int count) const
    {
        return KVOSimCollection(KVOSimContext(m_database.ContextID()).CreateCollection(count)).BiggestCSetID();
    }
    KVOSimDistributionID Store() const
    {
        KVOSimDistributionID const id = KVOSrvUtilities::Create2DDistribution(Members(kOrder), Members(kOrder), kChunk, kChunk);
        KVOSrvDenseMatrix matrix(id);
        KVOSrvMatrix const values = Numbers(kOrder, kOrder);
        matrix.SetRows(0, kOrder - 1, values);
        return id;
    }
    void ExpectNumbers(KVOSimDistributionID const& id) const { ExpectSame(KVOSrvDenseMatrix(id), Dense(Numbers(kOrder, kOrder))); }

    TemporaryFolder m_folder{FolderWithoutDisk()};
    std::string m_path = m_folder / "test.sim";
    KVOSimDatabase m_database;
    KVOSimDistributionID m_a, m_b;
};

class StoredProduct : public Stored
{
public:
    void Do() override
    {
        KVOSrvDenseMatrix c(KVOSrvUtilities::Create2DDistribution(Members(kOrder), Members(kOrder), kChunk, kChunk));
        m_c = c.DistributionID();
        KVOSrvDenseMatrix(m_a).Multiply(KVOSrvDenseMatrix(m_b), c);
    }
    void Check(bool isDone) override
    {
        ExpectNumbers(m_a);
        ExpectNumbers(m_b);
        Dense const x(Numbers(kOrder, kOrder));
        if (isDone)
            ExpectSame(KVOSrvDenseMatrix(m_c), x * x, 0.25);
    }

private:
    KVOSimDistributionID m_c;
};

/// Extends a matrix, commits, closes and opens again.
class Commit : public Stored
{
public:
    Commit()
    {
        m_index = m_a.Index();
        m_database.Close();
    }
    void Do() override
    {
        KVOSimDatabase database;
        database.OpenFile(m_path.c_str(), false);
        KVOSimContext context(database.ContextID());
        KVOSimTransaction transaction(context);
        KVOSrvDenseMatrix matrix(KVOSimDistributionID(database.ContextID(), m_index));
        int const number = 100 + matrix.NumberOfRows();
        matrix.ExtendDim(1, 1, &number);
        transaction.Commit();
        m_committed = matrix.NumberOfRows();
        database.Close();
    }
    void Check(bool isDone) override
    {
        KVOSimDatabase database;
        database.OpenFile(m_path.c_str(), false);
        KVOSrvDenseMatrix const matrix(KVOSimDistributionID(database.ContextID(), m_index));
        EXPECT_GE(matrix.NumberOfRows(), m_committed);
        EXPECT_LE(matrix.NumberOfRows(), m_committed + (isDone ? 0 : 1)); // a commit may have failed after it was done
        m_committed = matrix.NumberOfRows();
        ExpectSame(Part(Dense(matrix), 0, kOrder - 1, 0, kOrder - 1), Dense(Numbers(kOrder, kOrder)));
        database.Close();
    }

private:
    int m_index = -1, m_committed = kOrder;
};

/// Makes a file, which goes again unless it has become a database.
class Creation : public Job
{
public:
    void Do() override
    {
        KVOSimDatabase database;
        database.CreateFile(m_path.c_str(), 0);
    }
    void Check(bool isDone) override { EXPECT_EQ(std::filesystem::remove(m_path), isDone); }

private:
    TemporaryFolder m_folder{FolderWithoutDisk()};
    std::string m_path = m_folder / "test.sim";
};

class Container : public Job
{
public:
    void Do() override
    {
        KVOSrvMatrixContainer container;
        try {
            container.Create(1, 30, 30, 8, 8);
        } catch (...) {
            EXPECT_FALSE(container.IsMember(1));
            throw;
        }
        KVOSrvDenseMatrix& matrix = container.Get(1);
        matrix.SetRows(0, 29, Numbers(30, 30));
        ExpectSame(matrix, Dense(Numbers(30, 30)));
        container.Close();
    }
    void Check(bool) override
    {
        for (auto const& file : std::filesystem::directory_iterator(std::filesystem::current_path()))
            EXPECT_FALSE(file.path().filename().string().starts_with("KVOSrvMatrixContainer")) << file.path();
    }
};

template<class Kind, class... Arguments>
MakeJob New(Arguments... arguments)
{
    return [=] { return std::make_unique<Kind>(arguments...); };
}

std::ptrdiff_t OpenDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

} // namespace

TEST(FaultSweep, OfWholeJobsLosesNothingAndLeavesNothingOpen)
{
    std::pair<char const*, MakeJob> const jobs[] = {
        {"text file", New<SparseFile>(3, 2)},    {"chunked file", New<SparseFile>(6, 1)}, {"dense file", New<SparseFile>(7, 7)},
        {"assembly", New<Assembly>()},           {"eigenproblem", New<Eigenproblem>()},   {"product", New<StoredProduct>()},
        {"commit and reopening", New<Commit>()}, {"container", New<Container>()},         {"creation", New<Creation>()},
    };
    std::ptrdiff_t open = 0;
    int swept = 0;
    for (auto const& [name, make] : jobs)
        for (FailingCalls const& calls :
             {Allocations(), News(), SystemCalls(SystemCall::Read), SystemCalls(SystemCall::Write), SystemCalls(SystemCall::Sync)}) {
            SCOPED_TRACE(name);
            int rounds = 0;
            int const failures = FailEach(
                calls, make, [](std::unique_ptr<Job> const& job) { job->Do(); },
                [&](std::unique_ptr<Job>& job, bool threw) {
                    job->Check(!threw);
                    job->Do();
                    job->Check(true);
                    job.reset();
                    if (rounds++ == 0)
                        open = OpenDescriptors();
                    EXPECT_EQ(OpenDescriptors(), open);
                });
            RecordProperty(std::string(name) + ", " + calls.name, std::to_string(failures) + " of " + std::to_string(rounds - 1));
            swept += rounds - 1;
            EXPECT_FALSE(failures > 0 && std::string(name) == "assembly" && calls.name == "new");
        }
    RecordProperty("calls", swept);
    EXPECT_GT(swept, 500);
}
