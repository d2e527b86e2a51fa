#pragma once

#include "KVOExport.h"
#include "KVOSimBlockPlaces.h"
#include "KVOSimDistribution.h"
#include "mem_Allocator.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace simdb
{
class DenseDrawer;
struct DenseView;
struct Drawer;
class SparseDrawer;
} // namespace simdb

/// Makes, reads and writes the drawers of a distribution: set a view, check it, give buffers, execute.
///
/// A dense drawer has one buffer, slot 0: the view's values packed, the last dimension varying fastest. A sparse one
/// has the slots 0 values, 1 column indices, 2 row starts (rows + 1 entries) and, symmetric, 3 the diagonal. Buffers
/// stay the caller's; they are read or written by ExecWrite and ExecRead only. Without SetMakeNewDrawer and SetDrawer
/// the transfer works on drawer 0. Copies are independent and cheap.
///
/// Every member throws KVOSimException for misuse (a view without its dimensions, a buffer smaller than the view, ...)
/// and for failures.
class KVO_EXPORT KVOSimTransfer : public mem_AllocationOperators
{
public:
    /// A transfer without a view. @throws KVOSimException for no distribution, and when its database was closed
    explicit KVOSimTransfer(KVOSimDistribution const& distribution);

    /// The drawer will be new, and not chunked.
    void SetMakeNewDrawer();
    /// The drawer will be new, with one chunk size per dimension, 1 or more; larger than the dimension is allowed.
    void SetMakeNewDrawerChunked(KVOSimArray<int> const& chunkSizes);
    /// The drawer that exists and is worked on, by its number from 0; whether there is one is seen when it is used.
    void SetDrawer(int number) noexcept { m_drawer = number; }
    /// Allows ExecRead().
    void SetRead() noexcept { m_read = true; }
    /// Allows what changes the drawer.
    void SetWrite() noexcept { m_write = true; }
    /// @param bytes  0, the only choice
    void SetBufferPadding(int bytes);
    /// The kind of a new drawer; dense by default.
    void SetSerialization(KVOSimSerializationType const& type) noexcept { m_serialization = type; }
    /// Number of stored values of a new sparse drawer, 0 or more.
    void SetSparseNNonzero(std::int64_t count);
    /// The new drawer gets checksums of its values, CRC-32C of each chunk or of each array of a sparse one, which every
    /// commit brings up to date: chunks that were written in part since the last one are read again for it. Dense
    /// drawers need chunks for it, and the file format version 2; a scratch database has none.
    void SetValueChecksums() noexcept { m_checksums = true; }
    /// ExecRead() reads every chunk that it touches whole, and compares it with its checksum, where there are some:
    /// values that do not fit end in a KVOSimException of kind Damaged that names matrix and chunk, and leave anything
    /// in the buffers. What this process has changed in part since its last commit is not compared. InPlace(),
    /// FetchInPlace() and InPlaceForWriting() give null.
    void SetVerify() noexcept { m_verify = true; }
    /// Dense values move by calls alone, so that no page of the file comes into the process's memory: beside the
    /// caller's a transfer takes memory for one chunk, of 16 MiB at the most, which the database keeps. Only what is
    /// read is announced. InPlace(), FetchInPlace() and InPlaceForWriting() give null.
    void SetCallsAlone() noexcept { m_callsAlone = true; }
    /// The values that are not written read as this. @param typeKey  of the distribution
    void SetInitializationValue(double value, int typeKey);

    /// The view covers the members of `set` in dimension `dim`, in the order of the set; in a drawer that exists, they
    /// are members of the drawer's set. A set of the base collection serves a dimension of a colour variant.
    void SetDim(int dim, KVOSimCSetID const& set);
    /// The view covers the positions first to last, inclusive, 0-based, of the drawer's dimension `dim` over
    /// `collection`. A sparse drawer is written whole; of its rows, dimension 0, some can be read, see ExecRead().
    void SetDimOrdinalRange(int dim, KVOSimCollectionID const& collection, int first, int last);
    /// The drawer will grow along `dim` by the members of `set`, which follow those it has.
    void SetDimExtension(int dim, KVOSimCSetID const& set);

    /// Refuses a view that cannot be executed.
    void CheckView();

    /// Makes the new dense drawer; its values are the initialization value. This transfer works on it from then on.
    void InitializePersistentDrawer();
    /// Lets the drawer grow as set, the new values being the initialization value. Its dimension is then numbered by
    /// the old members and the new ones behind them.
    void InitializeExtension();
    /// Gives every block (chunk) of a dense drawer its place in the file. Blocks that had none hold the initialization
    /// value: where that is zero nothing is written for it, but the file is lengthened, so that a full disk may be found
    /// out by who writes them later; another value is written.
    void AllocateBlocks();
    /// Where the blocks are, for other processes to write them (KVOSrvBlockWriter): all of a dense matrix of doubles in
    /// one or two dimensions (a column; dimension 0 is the columns) that no commit has kept yet and whose blocks all
    /// have a place. The places hold until the next commit; this process, too, may write to the blocks. What it reads
    /// there before the others have ended may be anything; over a network, it reads them once it has opened the
    /// database again.
    /// @throws KVOSimException besides for a matrix with checksums of its values, which the writers could not keep, for
    /// one whose values HDF5 moves (filters, KVO_SIM_DATA_PATH), and for a scratch database
    KVOSimBlockPlaces BlockPlaces();
    /// The set that numbers dimension `dim` from now on; as many members as the dimension has.
    void SetDimMembers(int dim, KVOSimCSetID const& set);

    /// @param bytes  size of the caller's memory, at least what the view needs
    void SetBuffer(int slot, void* memory, std::size_t bytes);
    /// For writing only.
    void SetBuffer(int slot, void const* memory, std::size_t bytes);
    /// Reads the view into the buffers. Of a range of rows of a sparse drawer those slots are read that have a buffer: the row
    /// starts as they are stored, one more than rows, so that the first need not be 0; and from the first start to the
    /// last the entries. Row starts alone come first, therefore, who wants to know how many entries these are. Checksums
    /// are of whole arrays, so that such a view is refused with SetVerify().
    void ExecRead();
    /// Makes the new drawer first where that was asked for; a sparse one comes into being in no other way.
    void ExecWrite();
    /// The values of the view where the database keeps them, packed as in a buffer, or null: where they lie in several
    /// pieces, where the database does not have them at hand, and always at their first use since the file was opened.
    /// ExecRead() serves then. They stay there until the next call of any object of the file.
    void const* InPlace() const;
    /// The same, also at the first use, and fetched from the disk where it has to be: for a walk through much, each
    /// part used as a whole. Null as well where the part exceeds the database's memory for a distribution, and where
    /// the disk fails: ExecRead() tells how.
    void const* FetchInPlace() const;
    /// The values of the view as InPlace(), to be changed there, which has the effect of ExecWrite(); null also where
    /// they cannot be.
    void* InPlaceForWriting();
    /// Forgets the buffers; they are the caller's alone again.
    void RelinquishBuffers() noexcept;

    /// Tells that the view will be read soon: the reading of it starts, without waiting.
    void AnnounceRead() const noexcept;

private:
    struct Dim {
        KVOSimCSetID set; ///< null: the range first to last
        KVOSimCSetID extension;
        std::int64_t first = 0;
        std::int64_t last = -1;
        bool isSet = false;
    };
    struct Buffer {
        void* memory = nullptr;
        std::size_t bytes = 0;
        bool isSet = false;
        bool writable = false;
    };
    enum class NewDrawer { None, Plain, Chunked };

    simdb::Distribution& RequireDistribution(char const* doing) const;
    [[noreturn]] void Refuse(char const* doing, std::string const& why) const;
    Dim& DimAt(int dim, KVOSimCollectionID const& collection, char const* doing);
    bool IsExtension() const noexcept;
    void RequireWritable(char const* doing) const;
    void CheckNewDrawer(char const* doing) const;
    void CheckExtension(char const* doing) const;
    simdb::Drawer& ViewedDrawer(char const* doing) const;
    simdb::DenseDrawer& BlocksOf(simdb::Drawer& drawer, char const* doing) const;
    simdb::DenseView ViewOf(simdb::Drawer const& drawer, char const* doing) const;
    bool IsWholeSparseView(simdb::Drawer const& drawer, bool forReading, char const* doing) const;
    void ReadSparseRows(simdb::SparseDrawer& sparse);
    template<class Values, class Find>
    Values* FindInPlace(char const* doing, Find const& find) const;
    void* BufferOf(int slot, std::int64_t bytes, bool forReading, char const* doing) const;
    void SetBufferOf(int slot, void* memory, std::size_t bytes, bool writable);
    bool KeepsChecksums() const;
    void MakeDenseDrawer(char const* doing);
    void MakeSparseDrawer(char const* doing);

    std::shared_ptr<simdb::Distribution> m_distribution;
    std::vector<Dim> m_dims;
    std::vector<std::int64_t> m_chunkSizes;
    std::array<Buffer, 4> m_buffers;
    KVOSimSerializationType m_serialization;
    std::int64_t m_nonzeros = 0;
    std::array<std::byte, 8> m_initialValue{}; ///< of the distribution's type
    NewDrawer m_newDrawer = NewDrawer::None;
    int m_drawer = 0;
    bool m_read = false;
    bool m_write = false;
    bool m_checksums = false;
    bool m_verify = false;
    bool m_callsAlone = false;
};
