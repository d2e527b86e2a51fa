// Import of text triplets: formats 2 and 3.

#include "InputText.h"
#include "KVOSrvSparseImExPorter.h"
#include "MalformedFile.h"
#include "MatrixEntryStore.h"
#include "MatrixText.h"
#include "SparseRowBuilder.h"
#include "TextWindow.h"
#include "mem_Vector.h"
#include "tasks.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

using KVOSrvSparseSupport::CompressedRows;
using KVOSrvSparseSupport::SparseRowBuilder;

namespace
{

/// Bytes of a text.
struct Part {
    std::int64_t begin;
    std::int64_t end; // behind that of the text where it goes on to whatever comes
    std::int64_t BytesOf(InputText const& file) const noexcept { return std::min(end, file.FileBytes()) - begin; }
};

char* SkipSpace(char* text, char const* end)
{
    while (text != end && MatrixText::IsSpace(*text))
        ++text;
    return text;
}

/// Records of some part of a file, and what ended them.
struct Triplets {
    explicit Triplets(std::int64_t bytes) : entries(bytes) {}

    enum class Found { kRecords, kPartOfRecord, kNoNumber, kTooMany };
    /// @param take  null, or takes the entries from here at once
    Found Read(InputText const& file, Part const& part, KVOSrvSparseImExPorter::TakeEntries const* take = nullptr);
    char* ReadRecords(char* text, char const* end);

    MatrixEntryStore<KVOSrvSparseMatrixEntry> entries;
    int rows = 0;
    int columns = 0;
    bool ascend = true; // row by row, each row's columns strictly, as an export writes them
    std::uint64_t firstPlace = 0, lastPlace = 0;

    // Where a record ended before its time: the number of it that is missing or none, where that would stand, and the same in the file.
    int number = 0;
    char const* text = nullptr;
    std::int64_t place = 0;

private:
    char* Stop(int wrong, char const* at, char* rest) noexcept
    {
        number = wrong;
        text = at;
        return rest;
    }
};

// Reads the records of [text, end). The result is the begin of a record that is not complete there, else `end`, or null when a token is
// no number of its kind.
char* Triplets::ReadRecords(char* next, char const* end)
{
    for (;;) {
        char* const record = next = SkipSpace(next, end);
        char* token = record;
        int row, column;
        double value;
        if (next == end)
            return record;
        if ((next = MatrixText::ReadIndex(token, row)) == nullptr)
            return Stop(0, token, nullptr);
        if ((token = SkipSpace(next, end)) == end)
            return Stop(1, next, record);
        if ((next = MatrixText::ReadIndex(token, column)) == nullptr)
            return Stop(1, token, nullptr);
        if ((token = SkipSpace(next, end)) == end)
            return Stop(2, next, record);
        if ((next = MatrixText::ReadValue(token, end, value)) == nullptr)
            return Stop(2, token, nullptr);
        std::uint64_t const at = (static_cast<std::uint64_t>(row) << 32) + static_cast<unsigned>(column);
        ascend &= at > lastPlace;
        lastPlace = at;
        firstPlace = firstPlace == 0 ? at : firstPlace;
        rows = std::max(rows, row);
        columns = std::max(columns, column);
        entries.Append({static_cast<unsigned>(row - 1), static_cast<unsigned>(column - 1), value});
    }
}

// @return kPartOfRecord when the part ends in the middle of a record, kNoNumber when a token is no number of its kind, kTooMany when there
// are more than INT_MAX records
Triplets::Found Triplets::Read(InputText const& file, Part const& part, KVOSrvSparseImExPorter::TakeEntries const* take)
{
    constexpr std::int64_t kShortestRecord = 6; // three digits, each with a white space behind it

    TextWindow window(file, part.begin, part.end);
    std::int64_t consumed = 0, taken = 0;
    for (char* rest = window.Begin(); window.Next(rest);) {
        std::int64_t const length = window.End() - window.Begin();
        entries.Reserve(length / kShortestRecord, consumed);
        rest = ReadRecords(window.Begin(), window.End());
        if (taken + entries.Count() > INT_MAX)
            return Found::kTooMany;
        if (rest == nullptr || (window.IsLast() && rest != window.End())) {
            place = window.PlaceOf(text);
            return rest == nullptr ? Found::kNoNumber : Found::kPartOfRecord;
        }
        if (take == nullptr) {
            consumed = file.IsCompressed() ? file.FileBytesUpTo(0) : consumed + (rest - window.Begin());
            continue;
        }
        (*take)({entries.Entries(), static_cast<std::size_t>(entries.Count())});
        taken += entries.Count();
        entries.Commit(entries.Entries());
    }
    return Found::kRecords;
}

std::int64_t LineOf(InputText const& file, std::int64_t place)
{
    std::int64_t line = 1;
    char text[65536];
    for (std::int64_t begin = 0; begin < place; begin += std::int64_t{sizeof text}) {
        auto const bytes = static_cast<std::size_t>(std::min<std::int64_t>(place - begin, sizeof text));
        line += std::count(text, text + file.ReadAt(begin, text, bytes), '\n');
    }
    return line;
}

[[noreturn]] void RefuseTooMany()
{
    throw MalformedFile::AtByte(0, "more entries than a matrix can have (2147483647)");
}

// What stopped the reading of records.
[[noreturn]] void Refuse(InputText const& file, Triplets const& records, Triplets::Found found)
{
    constexpr char const* kExpected[] = {"a row number (whole, from 1 to 2147483647)", "a column number (whole, from 1 to 2147483647)",
                                         "a value"};
    if (found == Triplets::Found::kTooMany)
        RefuseTooMany();
    std::string what = std::string("expected ") + kExpected[records.number] + ", found ";
    if (found == Triplets::Found::kPartOfRecord) {
        what += "the end of the file";
    } else {
        char text[64]; // more of a word than a message shows
        std::string_view const shown(text, file.ReadAt(records.place, text, sizeof text));
        what += Quoted(shown.substr(0, static_cast<std::size_t>(std::ranges::find_if(shown, MatrixText::IsSpace) - shown.begin())));
    }
    throw MalformedFile::AtLine(LineOf(file, records.place), what);
}

// Cuts a file behind ends of lines, where records end as a rule.
class TextParts
{
public:
    TextParts(InputText const& file, int parts) : m_parts(parts)
    {
        m_begin[0] = 0;
        for (int part = 1; part < parts; ++part)
            m_begin[part] = std::max(BehindLine(file, blac::PieceBegin(file.FileBytes(), parts, part)), m_begin[part - 1]);
        m_begin[parts] = INT64_MAX; // the last part goes on to the end of what there is
    }
    int Count() const noexcept { return m_parts; }
    Part operator[](int part) const noexcept { return {m_begin[part], m_begin[part + 1]}; }

private:
    static std::int64_t BehindLine(InputText const& file, std::int64_t place)
    {
        char text[1024];
        for (std::size_t got; (got = file.ReadAt(place, text, sizeof text)) > 0; place += static_cast<std::int64_t>(got))
            if (char const* const end = static_cast<char const*>(std::memchr(text, '\n', got)))
                return place + (end + 1 - text);
        return place;
    }

    int m_parts;
    std::int64_t m_begin[blac::kMostTasks + 1];
};

// Reads a file in parts, in tasks. False when a record was cut: those behind it were not read right.
// @throws MalformedFile unless all in front of such a record is sound
bool ReadParts(InputText const& file, TextParts const& parts, mem_Vector<Triplets>& triplets)
{
    triplets.reserve(static_cast<std::size_t>(parts.Count()));
    for (int part = 0; part < parts.Count(); ++part)
        triplets.emplace_back(parts[part].BytesOf(file));
    Triplets::Found found[blac::kMostTasks];
    blac::InTasks(parts.Count(), [&](int part) { found[part] = triplets[static_cast<std::size_t>(part)].Read(file, parts[part]); });
    Triplets::Found* const end = found + parts.Count();
    Triplets::Found const* const wrong = std::find_if(found, end, [](Triplets::Found one) { return one != Triplets::Found::kRecords; });
    if (wrong == end)
        return true;
    if (*wrong == Triplets::Found::kPartOfRecord && wrong + 1 != end)
        return false;
    Refuse(file, triplets[static_cast<std::size_t>(wrong - found)], *wrong);
}

mem_Vector<Triplets> ReadParts(char const* path)
{
    constexpr std::int64_t kLeastBytes = 1 << 18; // what takes a task some hundred microseconds

    InputText const file(path);
    mem_Vector<Triplets> triplets;
    if (!ReadParts(file, TextParts(file, file.IsCompressed() ? 1 : blac::PiecesFor(file.FileBytes(), kLeastBytes)), triplets)) {
        triplets.clear();
        ReadParts(file, TextParts(file, 1), triplets);
    }
    return triplets;
}

bool Ascend(mem_Vector<Triplets> const& parts)
{
    std::uint64_t before = 0;
    for (Triplets const& part : parts) {
        if (part.entries.Count() == 0)
            continue;
        if (!part.ascend || part.firstPlace <= before)
            return false;
        before = part.lastPlace;
    }
    return true;
}

// What BuildRows() makes of entries that ascend, without its copy of them and its sort.
CompressedRows TakeAscending(SparseRowBuilder::Batches batches, int rows, int columns)
{
    // Of each batch the number of its first entry and the row behind that of the entry before.
    struct Start {
        std::int64_t entry, row;
    };
    mem_Vector<Start> starts;
    Start next{0, 0};
    for (SparseRowBuilder::Entries const& batch : batches) {
        starts.push_back(next);
        if (!batch.empty())
            next = {next.entry + std::ssize(batch), std::int64_t{batch.back().row} + 1};
    }
    CompressedRows result(rows, columns, next.entry);
    blac::InTasks(static_cast<int>(batches.size()), [&](int number) {
        auto [k, row] = starts[static_cast<std::size_t>(number)];
        for (KVOSrvSparseMatrixEntry const& entry : batches[static_cast<std::size_t>(number)]) {
            for (; row <= entry.row; ++row)
                result.rowStart[row] = static_cast<unsigned>(k);
            result.columnIndices[k] = static_cast<int>(entry.column);
            result.values[k++] = entry.value;
        }
    });
    std::fill(result.rowStart.get() + next.row, result.rowStart.get() + rows + 1, static_cast<unsigned>(next.entry));
    return result;
}

} // namespace

CompressedRows KVOSrvSparseImExPorter::ReadTriplets(char const* path)
{
    mem_Vector<Triplets> const parts = ReadParts(path);
    mem_Vector<SparseRowBuilder::Entries> batches;
    batches.reserve(parts.size());
    std::int64_t count = 0;
    int rows = 0, columns = 0;
    for (Triplets const& part : parts) {
        batches.emplace_back(part.entries.Entries(), static_cast<std::size_t>(part.entries.Count()));
        count += part.entries.Count();
        rows = std::max(rows, part.rows);
        columns = std::max(columns, part.columns);
    }
    if (count > INT_MAX)
        RefuseTooMany();
    return Ascend(parts) ? TakeAscending(batches, rows, columns) : KVOSrvSparseSupport::BuildRows(batches, rows, columns);
}

void KVOSrvSparseImExPorter::ReadTriplets(char const* path, TakeEntries const& take)
{
    InputText const file(path);
    TextParts const whole(file, 1);
    Triplets triplets(whole[0].BytesOf(file));
    if (Triplets::Found const found = triplets.Read(file, whole[0], &take); found != Triplets::Found::kRecords)
        Refuse(file, triplets, found);
}
