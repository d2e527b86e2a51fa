#include "KVOSrvBlockWriter.h"

#include "Descriptor.h"
#include "Hdf5.h"
#include "SimIo.h"
#include "SimJournal.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace
{

constexpr char const* kOpening = "Cannot open, for the blocks of a matrix, the database";
constexpr char const* kWriting = "Cannot write blocks to";
constexpr char const* kSyncing = "Cannot bring blocks to the disk in";

// Column of blocks by column of blocks.
std::pair<int, int> Order(KVOSimBlockPlace const& block) noexcept
{
    return {block.firstColumn, block.firstRow};
}

std::uint64_t EndOf(KVOSimBlockPlace const& block) noexcept
{
    auto const values = std::int64_t{block.columns - 1} * block.leadingDimension + block.rows;
    return block.offset + static_cast<std::uint64_t>(values) * sizeof(double);
}

} // namespace

struct KVOSrvBlockWriter::State {
    struct stat Status(char const* doing) const;
    void RequireMark(char const* doing) const;
    void RequireTransaction(char const* doing) const;
    KVOSimBlockPlace const& BlockAt(int row, int column) const;
    void WriteColumns(KVOSimBlockPlace const& block, int row, int rows, int column, int columns, double const* values,
                      std::int64_t lda) const;

    std::string path;
    KVOSimBlockPlaces places;             ///< without the blocks
    std::vector<KVOSimBlockPlace> blocks; ///< in Order()
    std::uint64_t end = 0;                ///< one behind the last byte of any
    Descriptor file;
};

struct stat KVOSrvBlockWriter::State::Status(char const* doing) const
{
    struct stat status;
    if (fstat(file.Number(), &status) != 0)
        simdb::ThrowErrno(doing, path, errno);
    return status;
}

void KVOSrvBlockWriter::State::RequireMark(char const* doing) const
{
    simdb::FileMark const expected{places.markOffset, places.mark};
    simdb::FileMark mark{places.markOffset, {}};
    std::size_t read = 0;
    if (int const error = simdb::io::Read(file.Number(), mark.bytes.data(), mark.bytes.size(), mark.offset, read))
        simdb::ThrowErrno(doing, path, error);
    if (!mark.IsMark() || !mark.IsOfSameFile(expected))
        simdb::ThrowReason(doing, path, "the places are those of another file");
    if (mark != expected)
        simdb::ThrowReason(doing, path, "the places are those of another state of the file: a commit or another session came after them");
    if (static_cast<std::uint64_t>(Status(doing).st_size) < end)
        simdb::ThrowReason(KVOSimException::Kind::Damaged, doing, path, "it ends in front of the places; it was cut short");
}

// Who has the transaction has the lock alone, so that not even a shared one can be had beside it.
void KVOSrvBlockWriter::State::RequireTransaction(char const* doing) const
{
    struct stat const opened = Status(doing);
    struct stat named;
    if (stat(path.c_str(), &named) != 0 || named.st_dev != opened.st_dev || named.st_ino != opened.st_ino)
        simdb::ThrowReason(doing, path, "the file was removed or replaced");
    if (flock(file.Number(), LOCK_SH | LOCK_NB) == 0) {
        flock(file.Number(), LOCK_UN);
        simdb::ThrowReason(doing, path,
                           "no process has it open for writing: the transaction is over, or the file system does not show locks of "
                           "other machines");
    }
    if (errno != EWOULDBLOCK)
        simdb::ThrowErrno("Cannot see, by a shared lock, whether a transaction is open in", path, errno);
}

KVOSrvBlockWriter::KVOSrvBlockWriter(DRXUnicodeString const& path, KVOSimBlockPlaces const& places) : m_state(std::make_unique<State>())
{
    State& state = *m_state;
    state.path = path.Utf8();
    places.Check();
    state.places = {places.mark, places.markOffset, places.rows, places.columns, places.rowsPerBlock, places.columnsPerBlock, {}};
    state.blocks.assign(places.blocks.begin(), places.blocks.end());
    std::ranges::sort(state.blocks, {}, Order);
    for (KVOSimBlockPlace const& block : state.blocks)
        state.end = std::max(state.end, EndOf(block));
    // Not blocking: a named pipe would wait for its other end.
    state.file = Descriptor(open(state.path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (!state.file.IsOpen())
        simdb::ThrowErrno(kOpening, state.path, errno);
    if (!S_ISREG(state.Status(kOpening).st_mode))
        simdb::ThrowReason(KVOSimException::Kind::Foreign, kOpening, state.path, "it is no regular file");
    state.RequireMark(kOpening);
    state.RequireTransaction(kOpening);
}

KVOSrvBlockWriter::~KVOSrvBlockWriter() = default;

KVOSimBlockPlace const& KVOSrvBlockWriter::State::BlockAt(int row, int column) const
{
    std::pair const first(column - column % places.columnsPerBlock, row - row % places.rowsPerBlock);
    auto const found = std::ranges::lower_bound(blocks, first, {}, Order);
    if (found == blocks.end() || Order(*found) != first)
        simdb::ThrowReason(kWriting, path,
                           "row " + std::to_string(row) + ", column " + std::to_string(column) +
                               " lies in a block that this process was given no place of");
    return *found;
}

// Rows `row` and on, columns `column` and on, of the block.
void KVOSrvBlockWriter::State::WriteColumns(KVOSimBlockPlace const& block, int row, int rows, int column, int columns, double const* values,
                                            std::int64_t lda) const
{
    bool const isOnePiece = lda == block.leadingDimension && rows == block.leadingDimension;
    int const pieces = isOnePiece ? 1 : columns;
    std::size_t const bytes = sizeof(double) * static_cast<std::size_t>(rows) * static_cast<std::size_t>(isOnePiece ? columns : 1);
    for (int i = 0; i < pieces; ++i) {
        std::int64_t const first = std::int64_t{column + i} * block.leadingDimension + row;
        std::uint64_t const offset = block.offset + static_cast<std::uint64_t>(first) * sizeof(double);
        if (int const error = simdb::io::Write(file.Number(), values + i * lda, bytes, offset))
            simdb::ThrowErrno(kWriting, path, error);
    }
}

void KVOSrvBlockWriter::Write(int firstRow, int lastRow, int firstColumn, int lastColumn, double const* values, std::int64_t lda)
{
    State const& state = *m_state;
    KVOSimBlockPlaces const& places = state.places;
    if (firstRow < 0 || lastRow < firstRow || lastRow >= places.rows || firstColumn < 0 || lastColumn < firstColumn ||
        lastColumn >= places.columns)
        simdb::ThrowReason(kWriting, state.path, "the range lies outside of the matrix");
    if (values == nullptr || lda <= lastRow - firstRow)
        simdb::ThrowReason(kWriting, state.path, "there are no values, or their columns overlap");
    struct Part {
        KVOSimBlockPlace const* block;
        int row, column;
    };
    std::vector<Part> parts;
    for (std::int64_t column = firstColumn; column <= lastColumn; column += places.columnsPerBlock - column % places.columnsPerBlock)
        for (std::int64_t row = firstRow; row <= lastRow; row += places.rowsPerBlock - row % places.rowsPerBlock)
            parts.push_back(
                {&state.BlockAt(static_cast<int>(row), static_cast<int>(column)), static_cast<int>(row), static_cast<int>(column)});
    state.RequireMark(kWriting);
    for (Part const& part : parts) {
        KVOSimBlockPlace const& block = *part.block;
        int const rows = std::min(lastRow, block.firstRow + (block.rows - 1)) - part.row + 1;
        int const columns = std::min(lastColumn, block.firstColumn + (block.columns - 1)) - part.column + 1;
        state.WriteColumns(block, part.row - block.firstRow, rows, part.column - block.firstColumn, columns,
                           values + (part.row - firstRow) + (part.column - firstColumn) * lda, lda);
    }
}

// The disk first: what the transaction is asked for then is that it was open until everything was there.
void KVOSrvBlockWriter::Sync()
{
    State const& state = *m_state;
    if (int const error = simdb::io::Sync(state.file.Number()))
        simdb::ThrowErrno(kSyncing, state.path, error);
    state.RequireMark(kSyncing);
    state.RequireTransaction(kSyncing);
}
