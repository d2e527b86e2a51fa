#pragma once

#include "Dense.h"
#include "ExpectThrows.h"
#include "FailureSweep.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMtxExceptions.h"

#include <array>
#include <string>

inline int StoredEntries(KVOSrvMatrix const& matrix)
{
    return matrix.IsDiagonal() ? matrix.NumberOfRows() : matrix.NumberOfRows() * matrix.NumberOfColumns();
}

/// Element (i, j) of either storage.
inline double Element(KVOSrvMatrix const& matrix, int i, int j)
{
    if (matrix.IsDiagonal())
        return i == j ? matrix.Values()[i] : 0.0;
    return matrix.Values()[i + std::ptrdiff_t{j} * matrix.NumberOfRows()];
}

inline Dense ValuesOf(KVOSrvMatrix const& matrix)
{
    return Filled(matrix.NumberOfRows(), matrix.NumberOfColumns(), [&](int i, int j) { return Element(matrix, i, j); });
}

/// A full matrix that works on the values of `dense`, which has no padding.
inline KVOSrvMatrix Wrapping(Dense& dense)
{
    return {dense.rows, dense.columns, dense.data(), false, false};
}

inline std::mt19937_64 s_random(20240607);

inline int Between(int first, int last)
{
    return std::uniform_int_distribution<>(first, last)(s_random);
}

inline void FillRandom(KVOSrvMatrix& matrix)
{
    std::generate_n(matrix.Values(), StoredEntries(matrix), [] { return std::uniform_real_distribution<>(-1.0, 1.0)(s_random); });
}

inline KVOSrvMatrix RandomMatrix(int rows, int columns, bool diagonal = false)
{
    KVOSrvMatrix matrix(rows, columns, nullptr, false, diagonal);
    FillRandom(matrix);
    return matrix;
}

/// A random matrix that wraps an array of the test, with guards on both sides that are checked at the end.
class GuardedMatrix
{
public:
    GuardedMatrix(int rows, int columns, bool symmetric = false, bool diagonal = false)
        : m_array(static_cast<std::size_t>(2 * kGuard + (diagonal ? rows : rows * columns)), kPadding),
          matrix(rows, columns, m_array.data() + kGuard, symmetric, diagonal)
    {
        FillRandom(matrix);
    }
    GuardedMatrix(GuardedMatrix const&) = delete;
    GuardedMatrix& operator=(GuardedMatrix const&) = delete;
    ~GuardedMatrix()
    {
        EXPECT_EQ(std::count(m_array.begin(), m_array.begin() + kGuard, kPadding), kGuard);
        EXPECT_EQ(std::count(m_array.end() - kGuard, m_array.end(), kPadding), kGuard);
    }

private:
    static constexpr int kGuard = 17; // odd, so that the matrix begins within a cache line
    Vector m_array;

public:
    KVOSrvMatrix matrix;
};

/// All of a matrix that a caller can see, to be compared after a failure.
class Snapshot
{
public:
    explicit Snapshot(KVOSrvMatrix const& matrix) : m_matrix(matrix), m_array(matrix.Values()), m_copy(matrix) {}
    void ExpectUnchanged() const
    {
        auto const fields = [](KVOSrvMatrix const& m) {
            return std::array{m.NumberOfRows(), m.NumberOfColumns(), int{m.IsSymmetric()}, int{m.IsDiagonal()}};
        };
        EXPECT_EQ(m_matrix.Values(), m_array);
        EXPECT_EQ(fields(m_matrix), fields(m_copy));
        EXPECT_TRUE(std::equal(m_array, m_array + StoredEntries(m_copy), m_copy.Values(), SameBits));
    }

private:
    KVOSrvMatrix const& m_matrix;
    double const* m_array;
    KVOSrvMatrix m_copy;
};

/// Expects that a class refuses its input with a reason; `operation` is "<class>::<operation>".
template<class Run>
void ExpectRefused(std::string const& operation, Run const& run)
{
    std::string const beginning = operation + " - Illegal input: ";
    EXPECT_EQ(ReportOf<KVOSrvMtxRefusedInput>(run).substr(0, beginning.size()), beginning);
}

/// Expects the same, or with the name of an operation of KVOSrvMatrix alone its KVOSrvMtxIllegalInput, and `matrix` unchanged.
template<class Run>
void ExpectRefused(std::string const& operation, KVOSrvMatrix const& matrix, Run const& run)
{
    Snapshot const before(matrix);
    if (operation.find("::") != std::string::npos)
        ExpectRefused(operation, run);
    else
        ExpectThrows<KVOSrvMtxIllegalInput>("KVOSrvMatrix::" + operation + " - Illegal input.", run);
    before.ExpectUnchanged();
}
inline void ExpectRefused(std::string const& operation, KVOSrvMatrix const& matrix, Calls const& calls)
{
    for (auto const& call : calls) {
        SCOPED_TRACE(testing::Message() << "call " << &call - calls.begin());
        ExpectRefused(operation, matrix, call);
    }
}

/// Lets each allocation of `run` fail in turn, and expects mem_OutOfMemory and `matrix` unchanged. Returns how many there are.
template<class Run>
int FailEachAllocation(KVOSrvMatrix const& matrix, Run const& run)
{
    Snapshot const before(matrix);
    return FailEach(Allocations(), run, [&](bool threw) {
        if (threw)
            before.ExpectUnchanged();
    });
}
