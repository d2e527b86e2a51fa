#include "KVOSrvDenseMatrix.h"

#include "DenseChecks.h"
#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimException.h"
#include "mem_Vector.h"

#include <algorithm>
#include <new>
#include <utility>

using DenseChecks::RequireFitting;

namespace
{

KVOSimDrawer FirstDrawer(KVOSimDistribution const& distribution)
{
    KVOSimArray<KVOSimDrawer> drawers;
    distribution.QueryDrawers(drawers);
    RequireFitting(drawers.Size() > 0, "KVOSrvDenseMatrix", "the distribution has no drawer");
    return drawers[0];
}

// The store's dimension of the rows: columns come first, but a one-dimensional matrix is a single column.
int RowDim(KVOSimDistribution const& distribution)
{
    return distribution.NumDimensions() - 1;
}

KVOSrvBlockCut CutOf(KVOSimDrawer const& drawer, int dim)
{
    return KVOSrvBlockCut::Whole(drawer.dimensionSizes[dim], drawer.chunkSizes.IsEmpty() ? 0 : drawer.chunkSizes[dim]);
}

// Whether `added` names a member twice, or one of `present`.
bool RepeatMembers(KVOSimArray<int> const& present, mem_Vector<int> added)
{
    mem_Vector<int> old(present.begin(), present.end());
    std::sort(old.begin(), old.end());
    std::sort(added.begin(), added.end());
    return std::adjacent_find(added.begin(), added.end()) != added.end() ||
           std::any_of(added.begin(), added.end(), [&](int number) { return std::binary_search(old.begin(), old.end(), number); });
}

std::unique_ptr<KVOSimTransfer> NewTransfer(KVOSimDistribution const& distribution)
{
    auto transfer = std::make_unique<KVOSimTransfer>(distribution);
    transfer->SetRead();
    transfer->SetWrite();
    transfer->SetBufferPadding(0);
    return transfer;
}

// Deliberate: in 32 bits, and widened only then. The database is given the wish that it has always been given; it caps what is too much,
// which a product that wrapped around to a negative number is, too.
std::uint64_t WholeMatrixBytes(int rows, int columns, int elementSize)
{
    auto const bytes = static_cast<std::uint32_t>(columns) * static_cast<std::uint32_t>(rows) * static_cast<std::uint32_t>(elementSize);
    return static_cast<std::uint64_t>(static_cast<std::int32_t>(bytes));
}

} // namespace

KVOSrvDenseMatrix::KVOSrvDenseMatrix() = default;

KVOSrvDenseMatrix::KVOSrvDenseMatrix(KVOSimDistributionID const& distribution)
{
    if (!distribution.IsNull())
        Bind(KVOSimDistribution(distribution));
}

KVOSrvDenseMatrix::KVOSrvDenseMatrix(KVOSimDistribution const& distribution)
{
    if (!distribution.IsNull())
        Bind(distribution);
}

KVOSrvDenseMatrix::KVOSrvDenseMatrix(KVOSrvDenseMatrix const& parent, int r0, int r1, int c0, int c1)
    : m_distribution(parent.m_distribution), m_isView(true), m_rowCut(parent.m_rowCut.View(r0, r1)),
      m_columnCut(parent.m_columnCut.View(c0, c1)), m_rowCSetID(parent.m_rowCSetID), m_columnCSetID(parent.m_columnCSetID),
      m_isExtended(parent.m_isExtended)
{
    if (!m_distribution.IsNull())
        m_transfer = NewTransfer(m_distribution);
}

KVOSrvDenseMatrix::~KVOSrvDenseMatrix() = default;

void KVOSrvDenseMatrix::Bind(KVOSimDistribution const& distribution)
{
    int const dims = distribution.NumDimensions();
    RequireFitting(dims == 1 || dims == 2, "KVOSrvDenseMatrix", "the distribution has not one or two dimensions");
    KVOSimDrawer const drawer = FirstDrawer(distribution);
    RequireFitting(drawer.kind == KVOSimDenseDrawer && drawer.typeKey == KVOSimDouble, "KVOSrvDenseMatrix",
                   "the drawer is not a dense one of doubles");

    m_distribution = distribution;
    m_transfer = NewTransfer(m_distribution);
    int const rowDim = RowDim(distribution);
    m_rowCut = CutOf(drawer, rowDim);
    m_rowCSetID = drawer.csets[rowDim];
    m_columnCut = dims == 2 ? CutOf(drawer, 0) : KVOSrvBlockCut::Whole(1, 1);
    if (dims == 2)
        m_columnCSetID = drawer.csets[0];
}

// An extension goes with its transaction, but what this object has learned by it stays.
void KVOSrvDenseMatrix::RequireStoredSize() const
{
    auto const isBehind = [&](int dim, KVOSrvBlockCut const& cut) {
        return std::int64_t{cut.offset} + cut.size > m_distribution.DimensionSize(dim);
    };
    int const rowDim = m_isExtended ? RowDim(m_distribution) : 0;
    if (m_isExtended && (isBehind(rowDim, m_rowCut) || (rowDim > 0 && isBehind(0, m_columnCut))))
        KVOSimException("Cannot use a matrix of the database", KVOSimContext(DistributionID().ContextID()).Path(),
                        "the transaction in which it was extended was dropped; bind a new one to the distribution")
            .Throw(DenseChecks::kSource, __LINE__);
}

// The set of those members of `stored` that this matrix has.
KVOSimCSetID KVOSrvDenseMatrix::PartOfMembers(KVOSimCSetID const& stored, KVOSrvBlockCut const& cut,
                                              std::unique_ptr<KVOSimCSet const>& part) const
{
    if (stored.IsNull())
        return stored;
    RequireStoredSize();
    KVOSimCSet const set(stored);
    if (set.Size() == cut.size)
        return stored;
    if (part == nullptr) {
        if (cut.offset < 0 || cut.offset > set.Size() - cut.size) // a view that leaves its matrix
            KVOSrvMtxInvalidGetRange().Throw(DenseChecks::kSource, __LINE__);
        part = std::make_unique<KVOSimCSet const>(set.Part(cut.offset, cut.size));
    }
    return part->ID();
}

KVOSimCSetID KVOSrvDenseMatrix::RowCSetID() const
{
    return PartOfMembers(m_rowCSetID, m_rowCut, m_rowPart);
}

KVOSimCSetID KVOSrvDenseMatrix::ColumnCSetID() const
{
    return PartOfMembers(m_columnCSetID, m_columnCut, m_columnPart);
}

KVOSrvDenseMatrix* KVOSrvDenseMatrix::ConstSubmatrix(int r0, int r1, int c0, int c1) const
{
    return new KVOSrvDenseMatrix(*this, r0, r1, c0, c1);
}

KVOSrvDenseMatrix* KVOSrvDenseMatrix::Submatrix(int r0, int r1, int c0, int c1)
{
    return new KVOSrvDenseMatrix(*this, r0, r1, c0, c1);
}

bool KVOSrvDenseMatrix::BlockAllocated(int blockRow, int blockColumn) const
{
    if (blockRow < 0 || blockRow >= m_rowCut.blocks || blockColumn < 0 || blockColumn >= m_columnCut.blocks)
        return false;
    auto const chunk = [](KVOSimCollectionID const& collection, KVOSrvBlockCut const& cut, int block) {
        int const number = cut.offset / cut.perBlock + block;
        return KVOSimDimRange{collection, number, number};
    };
    KVOSimArray<KVOSimCollectionID> const& collections = m_distribution.Collections();
    KVOSimDrawer const drawer = FirstDrawer(m_distribution);
    if (drawer.chunkSizes.IsEmpty())
        return true; // stored in one piece, whatever blocks the matrix counts since it was extended
    KVOSimArray<KVOSimDimRange> range;
    if (collections.Size() == 2)
        range.Append(chunk(collections[0], m_columnCut, blockColumn));
    range.Append(chunk(collections[RowDim(m_distribution)], m_rowCut, blockRow));
    return m_distribution.ChunkAllocated(drawer.id, range);
}

int KVOSrvDenseMatrix::ExtendableDim() const
{
    return IsNull() ? -1 : FirstDrawer(m_distribution).extendableDim;
}

int KVOSrvDenseMatrix::ExtendDim(int dim, int count, int const* numbers)
{
    if (m_isView)
        return 1;
    if (count <= 0 || numbers == nullptr)
        return 2;
    // Of a single column the rows are the store's dimension 0, too.
    KVOSimCSetID const& members = dim == 0 && !m_columnCSetID.IsNull() ? m_columnCSetID : m_rowCSetID;
    if (dim < 0 || dim > 1 || members.IsNull())
        return 3;
    if (RepeatMembers({}, {numbers, numbers + count}))
        return 4;
    return ExtendDim(KVOSimCollection(members.CollectionID()).CreateTempOrderedCSet(numbers, count));
}

int KVOSrvDenseMatrix::ExtendDim(KVOSimCSetID const& newMembers)
{
    bool const columns = newMembers.CollectionID() == m_columnCSetID.CollectionID();
    if (!columns && newMembers.CollectionID() != m_rowCSetID.CollectionID())
        return 3;
    RequireStoredSize();
    KVOSimCSetID& members = columns ? m_columnCSetID : m_rowCSetID;
    KVOSimArray<int> const old = KVOSimCSet(members).OrderedMembers(), added = KVOSimCSet(newMembers).OrderedMembers();
    if (RepeatMembers(old, {added.begin(), added.end()}))
        return 4;
    mem_Vector<int> all(old.begin(), old.end());
    all.insert(all.end(), added.begin(), added.end());

    int const dim = columns ? 0 : RowDim(m_distribution);
    // This object's members would be put where the other one's are.
    if (FirstDrawer(m_distribution).dimensionSizes[dim] != (columns ? m_columnCut : m_rowCut).size)
        KVOSimException("Cannot extend a matrix of the database", KVOSimContext(DistributionID().ContextID()).Path(),
                        "it has been extended through another object; bind a new one to it")
            .Throw(DenseChecks::kSource, __LINE__);
    auto const size = static_cast<int>(all.size());
    KVOSimCSetID const allMembers = KVOSimCollection(members.CollectionID()).CreateOrderedCSet(all.data(), size);
    std::unique_ptr<KVOSimTransfer> transfer = NewTransfer(m_distribution);
    KVOSimTransfer extension(*m_transfer);
    extension.SetDimExtension(dim, newMembers);
    extension.CheckView();
    extension.InitializeExtension();
    extension.RelinquishBuffers();
    // The store has grown: from here on nothing may leave before this matrix has, too. A dimension that keeps the set that the extension
    // made for it has the same members.
    try {
        extension.SetDimMembers(dim, allMembers);
    } catch (KVOSimException const&) {
    } catch (std::bad_alloc const&) {
    }

    m_transfer = std::move(transfer);
    m_isExtended = true;
    members = allMembers;
    // Deliberate, also when rows are added: callers know the first block column by the width that it gets here. In a matrix that was grown
    // from one short block column this mends what Append leaves; the height of block row 0 is never mended.
    if (m_columnCut.blocks > 0)
        m_columnCut.inFirst = m_columnCut.blocks == 1 ? m_columnCut.inLast : m_columnCut.perBlock;
    (columns ? m_columnCut : m_rowCut).Append(added.Size());
    return 0;
}

void KVOSrvDenseMatrix::SetAccess(KVOSrvAccessType access)
{
    if (IsNull())
        return;
    KVOSimDrawer const drawer = FirstDrawer(m_distribution);
    if (drawer.chunkSizes.IsEmpty())
        return;
    int const elementSize = KVOSimTypeKeySize(drawer.typeKey);
    std::uint64_t const whole = WholeMatrixBytes(NumberOfRows(), NumberOfColumns(), elementSize);
    if (drawer.chunkSizes.Size() == 1) {
        m_distribution.SetCacheSize(whole);
        return;
    }
    auto chunkBytes = static_cast<std::uint64_t>(elementSize);
    for (int const chunkSize : drawer.chunkSizes)
        chunkBytes *= static_cast<std::uint64_t>(chunkSize);
    switch (access) {
    case KVOSrvAccessDefault:
        m_distribution.ResetCacheSize();
        break;
    case KVOSrvAccessRows:
        m_distribution.SetCacheSize(static_cast<std::uint64_t>(NumberOfRows()) * chunkBytes);
        break;
    case KVOSrvAccessColumns:
        m_distribution.SetCacheSize(static_cast<std::uint64_t>(NumberOfColumns()) * chunkBytes);
        break;
    case KVOSrvAccessAll:
        m_distribution.SetCacheSize(whole);
        break;
    }
}
