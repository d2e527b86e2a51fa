// Transfers between database matrices and memory, each one transfer of the database.

#include "DenseChecks.h"
#include "KVOSimException.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvProductMemory.h"

using namespace DenseChecks;

namespace
{

std::size_t ArrayBytes(KVOSrvMatrix const& matrix)
{
    return mem_ArrayBytes(matrix.AddressableEntries(), sizeof(double));
}

} // namespace

bool KVOSrvDenseMatrix::Contains(int r0, int r1, int c0, int c1) const noexcept
{
    return r0 >= 0 && c0 >= 0 && r1 < NumberOfRows() && c1 < NumberOfColumns() && r1 >= r0 && c1 >= c0;
}

KVOSimTransfer KVOSrvDenseMatrix::TransferOf(int r0, int r1, int c0, int c1) const
{
    RequireStoredSize();
    KVOSimArray<KVOSimCollectionID> const& collections = m_distribution.Collections();
    KVOSimTransfer transfer(*m_transfer);
    if (KVOSrvProductMemory::IsSet())
        transfer.SetCallsAlone();
    int dim = 0;
    if (collections.Size() == 2)
        transfer.SetDimOrdinalRange(dim++, collections[0], m_columnCut.offset + c0, m_columnCut.offset + c1);
    transfer.SetDimOrdinalRange(dim, collections[dim], m_rowCut.offset + r0, m_rowCut.offset + r1);
    return transfer;
}

void KVOSrvDenseMatrix::SetValues(int r0, int r1, int c0, int c1, KVOSrvMatrix const& m)
{
    RequireWritable(Contains(r0, r1, c0, c1));
    try {
        KVOSimTransfer transfer = TransferOf(r0, r1, c0, c1);
        transfer.CheckView();
        transfer.SetBuffer(0, m.Values(), ArrayBytes(m));
        transfer.ExecWrite();
        transfer.RelinquishBuffers();
    } catch (KVOSimException const& exception) {
        // Deliberate: of all transfers this one alone rethrows in its own words. Callers tell failed writes by them.
        KVOSimDebugOutString text;
        text << "KVOSrvDenseMatrix::SetValues";
        exception.Write(text);
        text.Throw(kSource, kFailedWriteLine);
    }
}

void KVOSrvDenseMatrix::GetValues(int r0, int r1, int c0, int c1, KVOSrvMatrix& m) const
{
    RequireReadable(Contains(r0, r1, c0, c1));
    KVOSimTransfer transfer = TransferOf(r0, r1, c0, c1);
    transfer.CheckView();
    transfer.SetBuffer(0, m.Values(), ArrayBytes(m));
    transfer.ExecRead();
    transfer.RelinquishBuffers();
}

double const* KVOSrvDenseMatrix::ValuesInPlace(int r0, int r1, int c0, int c1) const
{
    return Contains(r0, r1, c0, c1) ? static_cast<double const*>(TransferOf(r0, r1, c0, c1).InPlace()) : nullptr;
}

double const* KVOSrvDenseMatrix::FetchInPlace(int r0, int r1, int c0, int c1) const
{
    return Contains(r0, r1, c0, c1) ? static_cast<double const*>(TransferOf(r0, r1, c0, c1).FetchInPlace()) : nullptr;
}

double* KVOSrvDenseMatrix::ValuesInPlace(int r0, int r1, int c0, int c1)
{
    return Contains(r0, r1, c0, c1) ? static_cast<double*>(TransferOf(r0, r1, c0, c1).InPlaceForWriting()) : nullptr;
}

void KVOSrvDenseMatrix::AnnounceRead(int r0, int r1, int c0, int c1) const noexcept
{
    if (!Contains(r0, r1, c0, c1))
        return;
    try {
        TransferOf(r0, r1, c0, c1).AnnounceRead();
    } catch (...) {
        // An announcement has no effect but speed: the read that follows reports what is wrong.
    }
}
