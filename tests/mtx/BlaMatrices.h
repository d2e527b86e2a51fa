#pragma once

#include "KVOSrvBlaMatrix.h"
#include "MatrixSupport.h"

#include <functional>
#include <string>
#include <utility>

// What the tests of the BLAS-backed matrix share.

using Property = KVOSrvBlaMatrix::KVOSrvMtxProperty;
Property const kGeneral = KVOSrvBlaMatrix::KVOSrvMtxGeneral;
Property const kSymmetric = KVOSrvBlaMatrix::KVOSrvMtxSymmetric;
Property const kSkewSymmetric = KVOSrvBlaMatrix::KVOSrvMtxSkewSymmetric;
Property const kSecondSymmetric = KVOSrvBlaMatrix::KVOSrvMtxSecondSymmetric;

using BlaPointer = KVOSrvBlaMatrixPointer;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
/// An operand that shows a test which tiles are fetched from it, as "firstRow-lastRow,firstColumn-lastColumn", and takes what to give.
class Probe final : public KVOSrvBlaMatrix
{
public:
    using Give = std::function<KVOSrvBlaMatrix*(std::string const& range, KVOSrvBlaMatrix* tile)>;

    Probe(Dense const& values, Give give)
        : KVOSrvBlaMatrix(values.rows, values.columns, values.values.data(), kGeneral), m_give(std::move(give))
    {
    }
    KVOSrvBlaMatrix* Submatrix(int startRow, int endRow, int startCol, int endCol) const override
    {
        std::string const rows = std::to_string(startRow) + '-' + std::to_string(endRow);
        return m_give(rows + ',' + std::to_string(startCol) + '-' + std::to_string(endCol),
                      KVOSrvBlaMatrix::Submatrix(startRow, endRow, startCol, endCol));
    }

private:
    Give m_give;
};
#pragma GCC diagnostic pop

inline Dense RandomDense(int rows, int columns)
{
    return Dense(RandomMatrix(rows, columns));
}

inline BlaPointer MakeBla(Dense const& values, Property property = kGeneral)
{
    return BlaPointer(new KVOSrvBlaMatrix(values.rows, values.columns, values.values.data(), property));
}

inline Dense ValuesOf(KVOSrvBlaMatrix const& matrix)
{
    Dense values(matrix.NumberOfRows(), matrix.NumberOfColumns());
    if (!values.values.empty())
        matrix.GetValues(0, values.rows - 1, 0, values.columns - 1, values.values.data());
    return values;
}

/// A random matrix that a view shows a part of: it has a leading dimension wider than its rows, and guards around.
class Framed
{
public:
    Framed(int rows, int columns)
        : m_frame(RandomDense(rows + 5, columns + 3)), m_parent(MakeBla(m_frame)), m_view(m_parent->Submatrix(2, 1 + rows, 1, columns)),
          values(Part(m_frame, 2, 1 + rows, 1, columns))
    {
    }
    KVOSrvBlaMatrix& operator*() const { return *m_view; }
    KVOSrvBlaMatrix* operator->() const { return m_view.get(); }
    /// Expects everything around the view to be as it was.
    void ExpectFrameUnchanged() const
    {
        Dense expected = m_frame;
        Put(expected, ValuesOf(*m_view), 2, 1);
        ExpectSame(*m_parent, expected);
    }

private:
    Dense m_frame;
    BlaPointer m_parent, m_view;

public:
    Dense const values; // the view's first
};

/// Lets each allocation of `run` fail in turn, and expects mem_OutOfMemory and the values of `matrix` unchanged. Returns how many there
/// are.
template<class Run>
int FailEachBlaAllocation(KVOSrvBlaMatrix const& matrix, Run const& run)
{
    Dense const before = ValuesOf(matrix);
    return FailEach(Allocations(), run, [&](bool threw) {
        if (threw)
            ExpectSame(matrix, before);
    });
}
