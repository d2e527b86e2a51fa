#pragma once

#include "KVOExport.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "mem_Allocator.h"

/// A complex Hermitian matrix H = S + i K out of core, on a scratch file of its own: for harmonic and gyroscopic
/// analyses, whose matrices have a symmetric real part S and a skew-symmetric imaginary part K.
///
/// The file is one KVOSrvScratchDenseMatrix, which see for where it lies, its name and what becomes of it: of order
/// n, S in and below the diagonal and K above it, so that each number is stored once, 8 n^2 bytes where two real
/// matrices take 16 n^2 and a complex one as much. The other triangles are mirror images, as the diagonal of K is 0.
///
/// Complex operands are arrays of double with real and imaginary parts interleaved, as BLAC_ZGEEV and Fortran have
/// them; std::complex<double> and Fortran's complex(c_double) lie so. Numbers of rows and columns are 0-based, ranges
/// inclusive at both ends. Failures of the database are KVOSimException and pass unchanged, unless an operation says
/// otherwise.
///
/// It is no KVOSrvDenseMatrix, whose products have a real meaning. Used by one thread at a time.
class KVO_EXPORT KVOSrvHermitianScrDenseMatrix : public mem_AllocationOperators
{
public:
    /// A matrix of zeros.
    /// @param order  rows and columns, 1 or more
    /// @param chunk  rows and columns of the chunks of the file, lowered as those of a KVOSrvScratchDenseMatrix; -1:
    /// the order
    /// @throws KVOSrvMtxIllegalInput "KVOSrvHermitianScrDenseMatrix" when one of them is none of these
    /// @throws KVOSimException when the file cannot be made; nothing is left of it then
    KVOSrvHermitianScrDenseMatrix(int order, int chunk);
    ~KVOSrvHermitianScrDenseMatrix();
    KVOSrvHermitianScrDenseMatrix(KVOSrvHermitianScrDenseMatrix const&) = delete;
    KVOSrvHermitianScrDenseMatrix& operator=(KVOSrvHermitianScrDenseMatrix const&) = delete;

    /// Rows, and columns.
    int Order() const noexcept { return m_stored.NumberOfRows(); }

    /// Reads rows r0 to r1 of columns c0 to c1, on either side of the diagonal or across it.
    /// @param[out] values  2 (r1 - r0 + 1) (c1 - c0 + 1) numbers, packed by columns, interleaved
    /// @throws KVOSrvMtxInvalidGetRange when the range is empty or leaves this matrix
    /// @throws KVOSrvMtxIllegalInput "GetValues" when `values` is null
    void GetValues(int r0, int r1, int c0, int c1, double* values) const;

    /// Writes that range, and with it its mirror image, columns r0 to r1 of rows c0 to c1, in which each entry is the
    /// conjugate. Where the range crosses the diagonal it must be Hermitian in itself: each entry equal to the
    /// conjugate of its mirror image, if that lies in the range, too, exactly, and the diagonal real.
    /// @param values  as GetValues() gives them
    /// @throws KVOSrvMtxInvalidSetRange when the range is empty or leaves this matrix
    /// @throws KVOSrvMtxIllegalInput "SetValues" when it is not Hermitian, a NaN off the diagonal included, or `values`
    /// is null; nothing is changed then
    /// @throws KVOSimDebugOutString with the database's text when the database fails; parts may be written then
    void SetValues(int r0, int r1, int c0, int c1, double const* values);

    /// Y = H X for k complex vectors, by four real products of the stored parts. The matrix is read once for each 1024
    /// vectors; beside the operands there are three times as many numbers as these vectors have, and pieces of the
    /// matrix, 67 MB at the most. Under a KVOSrvProductMemory, of 16 384 bytes at the least, all that is within the
    /// limit, and the matrix is read once.
    /// @param X     order x k, interleaved, by columns
    /// @param[out] Y  as X, apart from it; overwritten
    /// @throws KVOSrvMtxIllegalInput "Multiply" when k is negative, an array is null, Y is X, or a limit of memory is
    /// too small; nothing is changed then
    /// @throws KVOSimException when the database fails, mem_OutOfMemory; Y is of no use then
    void Multiply(double const* X, int k, double* Y) const;

    /// Multiplies the matrix by a real number, which leaves it Hermitian.
    void Scale(double factor);

    /// Whether each entry equals the conjugate of its mirror image, exactly. As both are one stored number only a NaN
    /// off the diagonal, which equals nothing, makes it false. Reads the matrix once.
    bool IsHermitianNumerically() const;

private:
    KVOSrvScratchDenseMatrix m_stored; // S(i, j) for i >= j, K(i, j) for i < j
};
