#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseImExPorter.h"
#include "MatrixEntryStore.h"
#include "MatrixFiles.h"
#include "MatrixText.h"
#include "SparseRows.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <utility>

using KVOSrvSparseSupport::AllocateArray;

namespace
{

constexpr char kSource[] = "mtx/impl/KVOSrvSparseImExPorterTextImport";

/// A text file in windows that end in white space, so that every token that begins in a window also ends there.
class TextWindow
{
public:
    explicit TextWindow(InputFile& file)
        : m_file(file), m_capacity(static_cast<std::size_t>(std::clamp(file.Size() + 2, kSmallest, kLargest))), m_text(Allocate(m_capacity))
    {
    }

    char* Begin() const noexcept { return m_text.get(); }
    char* End() const noexcept { return m_text.get() + m_windowEnd; } // End()[-1] is white space unless the window is empty
    bool IsLast() const noexcept { return m_last; }

    /// Goes on by the part of the window in front of `rest`. False after the last window.
    bool Next(char const* rest)
    {
        if (m_last)
            return false;
        Keep(rest);
        std::size_t const room = m_capacity - 1 - m_used;
        std::size_t const got = m_file.Read(m_text.get() + m_used, room);
        m_used += got;
        m_last = got < room;
        if (m_last)
            m_text[m_used++] = '\n'; // what ends the file ends its last token
        m_windowEnd = m_used;
        while (m_windowEnd > 0 && !MatrixText::IsSpace(m_text[m_windowEnd - 1]))
            --m_windowEnd;
        return true;
    }

private:
    static constexpr std::int64_t kSmallest = 64;
    static constexpr std::int64_t kLargest = 1 << 18; // stays in the second-level cache

    using Text = std::unique_ptr<char[], mem_Deleter>;
    static Text Allocate(std::size_t bytes) { return Text(static_cast<char*>(mem_OperatorNewThrow(bytes))); }

    // Moves what begins at `rest` to the front, into a larger buffer when it takes more than half: a record longer than the window.
    void Keep(char const* rest)
    {
        std::size_t const used = m_used - static_cast<std::size_t>(rest - m_text.get());
        if (used <= m_capacity / 2) {
            std::memmove(m_text.get(), rest, used);
        } else {
            Text text = Allocate(2 * m_capacity);
            std::memcpy(text.get(), rest, used);
            m_text = std::move(text);
            m_capacity *= 2;
        }
        m_used = used;
    }

    InputFile& m_file;
    std::size_t m_capacity;
    Text m_text;
    std::size_t m_used = 0;
    std::size_t m_windowEnd = 0;
    bool m_last = false;
};

char* SkipSpace(char* text, char const* end)
{
    while (text != end && MatrixText::IsSpace(*text))
        ++text;
    return text;
}

struct Triplets {
    explicit Triplets(std::int64_t fileSize) : entries(fileSize) {}

    char* ReadRecords(char* text, char const* end);

    MatrixEntryStore<KVOSrvSparseMatrixEntry> entries;
    int rows = 0;
    int columns = 0;
    bool ascend = true; // row by row, each row's columns strictly, as an export writes them
    std::uint64_t lastPlace = 0;
};

// Reads the records of [text, end). The result is the begin of a record that is not complete there, else `end`, or null when a token is
// no number of its kind.
char* Triplets::ReadRecords(char* text, char const* end)
{
    for (;;) {
        char* const record = text = SkipSpace(text, end);
        int row, column;
        double value;
        if (text == end)
            return record;
        if ((text = MatrixText::ReadIndex(text, row)) == nullptr)
            return nullptr;
        if ((text = SkipSpace(text, end)) == end)
            return record;
        if ((text = MatrixText::ReadIndex(text, column)) == nullptr)
            return nullptr;
        if ((text = SkipSpace(text, end)) == end)
            return record;
        if ((text = MatrixText::ReadValue(text, end, value)) == nullptr)
            return nullptr;
        std::uint64_t const place = (static_cast<std::uint64_t>(row) << 32) + static_cast<unsigned>(column);
        ascend &= place > lastPlace;
        lastPlace = place;
        rows = std::max(rows, row);
        columns = std::max(columns, column);
        entries.Append({static_cast<unsigned>(row - 1), static_cast<unsigned>(column - 1), value});
    }
}

} // namespace

// What ResetData() makes of entries that ascend, without its copy of them and its sort.
void KVOSrvSparseImExPorter::TakeAscendingEntries(KVOSrvSparseMatrix& matrix, KVOSrvSparseMatrixEntry const* entries, int count, int rows,
                                                  int columns)
{
    matrix.m_rowStart = AllocateArray<unsigned>(std::int64_t{rows} + 1);
    matrix.m_columnIndices = AllocateArray<int>(count);
    matrix.m_values = AllocateArray<double>(count);
    matrix.m_nonzeroCount = count;
    matrix.m_rowCount = rows;
    matrix.m_columnCount = columns;
    int k = 0;
    for (int row = 0; row < rows; ++row) {
        matrix.m_rowStart[row] = static_cast<unsigned>(k);
        for (; k < count && entries[k].row == static_cast<unsigned>(row); ++k) {
            matrix.m_columnIndices[k] = static_cast<int>(entries[k].column);
            matrix.m_values[k] = entries[k].value;
        }
    }
    matrix.m_rowStart[rows] = static_cast<unsigned>(count);
}

void KVOSrvSparseImExPorter::ImportTriplets(KVOSrvSparseMatrix& matrix, char const* path)
{
    constexpr std::int64_t kShortestRecord = 6; // three digits, each with a white space behind it

    InputFile file(path);
    TextWindow text(file);
    Triplets triplets(file.Size());
    std::int64_t consumed = 0;
    for (char* rest = text.Begin(); text.Next(rest);) {
        std::int64_t const window = text.End() - text.Begin();
        triplets.entries.Reserve(window / kShortestRecord, consumed);
        rest = triplets.ReadRecords(text.Begin(), text.End());
        if (rest == nullptr || (text.IsLast() && rest != text.End()) || triplets.entries.Count() > INT_MAX)
            KVOSrvMtxUnsupportedImpFmt().Throw(kSource, __LINE__);
        consumed += rest - text.Begin();
    }
    KVOSrvSparseMatrixEntry const* const entries = triplets.entries.Entries();
    int const count = static_cast<int>(triplets.entries.Count());
    if (triplets.ascend)
        TakeAscendingEntries(matrix, entries, count, triplets.rows, triplets.columns);
    else
        matrix.ResetData(entries, count, triplets.rows, triplets.columns);
}
