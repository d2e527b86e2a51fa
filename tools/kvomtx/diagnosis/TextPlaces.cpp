#include "TextPlaces.h"

#include "Interrupt.h"
#include "MatrixName.h"
#include "TextBytes.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <utility>

namespace
{

/// A text, word by word. Its reader has found it sound, so nothing is refused here.
class Words
{
public:
    explicit Words(std::string const& path) : m_bytes(path) { Advance(); }

    /// Of the next character.
    std::int64_t Line() const { return m_line; }
    /// Passes over white space, over ends of lines, too. False at the end of the text.
    bool SkipSpace()
    {
        while (m_next == ' ' || (m_next >= '\t' && m_next <= '\r'))
            Advance();
        return m_next != EOF;
    }
    void SkipLine()
    {
        while (m_next != '\n' && m_next != EOF)
            Advance();
        Advance();
    }
    void SkipWord()
    {
        while (m_next > ' ')
            Advance();
    }
    std::string Word()
    {
        SkipSpace();
        std::string word;
        for (; m_next > ' '; Advance())
            word += static_cast<char>(m_next >= 'A' && m_next <= 'Z' ? m_next + 32 : m_next);
        return word;
    }
    /// The next word, a whole number.
    std::int64_t Number()
    {
        SkipSpace();
        std::int64_t number = 0;
        for (; m_next > ' '; Advance())
            if (m_next >= '0' && m_next <= '9')
                number = 10 * number + (m_next - '0');
        return number;
    }
    bool Begins(char with) const { return m_next == with; }

private:
    void Advance()
    {
        m_line += m_next == '\n';
        m_next = m_bytes.Next();
    }

    TextBytes m_bytes;
    int m_next = 0;
    std::int64_t m_line = 1;
};

/// What a text says of its entries before they come.
struct Banner {
    bool isArray = false;
    bool isTriangle = false; // a place stands for its mirror image, too
    bool isStrict = false;   // without the diagonal
    int rows = 0;
    int columns = 0;
};

bool NextData(Words& words)
{
    while (words.SkipSpace()) {
        if (!words.Begins('%'))
            return true;
        words.SkipLine();
    }
    return false;
}

Banner ReadBanner(Words& words)
{
    Banner banner;
    words.SkipWord();
    words.Word();
    banner.isArray = words.Word() == "array";
    words.Word();
    std::string const symmetry = words.Word();
    banner.isTriangle = symmetry != "general";
    banner.isStrict = symmetry == "skew-symmetric";
    words.SkipLine();
    if (NextData(words)) {
        banner.rows = static_cast<int>(words.Number());
        banner.columns = static_cast<int>(words.Number());
        words.SkipLine();
    }
    return banner;
}

// Calls take(row, column, line), 0-based, for the entries of a text, in its order.
template<class Take>
void ForEachPlace(Words& words, Take const& take)
{
    while (words.SkipSpace()) {
        std::int64_t const line = words.Line();
        auto const row = static_cast<int>(words.Number() - 1), column = static_cast<int>(words.Number() - 1);
        words.SkipSpace();
        words.SkipWord();
        take(row, column, line);
    }
}

template<class Take>
void ForEachPlace(Words& words, Banner const& banner, Take const& take)
{
    for (int row = banner.isStrict ? 1 : 0, column = 0; NextData(words); words.SkipLine()) {
        std::int64_t const line = words.Line();
        if (!banner.isArray) {
            row = static_cast<int>(words.Number() - 1);
            column = static_cast<int>(words.Number() - 1);
        }
        take(row, column, line);
        if (banner.isArray && ++row == banner.rows) {
            ++column;
            row = banner.isTriangle ? column + banner.isStrict : 0;
        }
    }
}

/// take(row, column, line, isTriangle)
template<class Take>
void ForEachPlaceOf(MatrixName const& name, Take const& take)
{
    Words words(name.path);
    std::int64_t count = 0;
    auto const watched = [&](bool isTriangle) {
        return [&take, &count, isTriangle](int row, int column, std::int64_t line) {
            if (++count % 1048576 == 0)
                CheckInterrupt();
            take(row, column, line, isTriangle);
        };
    };
    if (name.format != MatrixFormat::kMatrixMarket)
        return ForEachPlace(words, watched(false));
    Banner const banner = ReadBanner(words);
    ForEachPlace(words, banner, watched(banner.isTriangle));
}

std::uint64_t Key(int row, int column)
{
    return (static_cast<std::uint64_t>(row) << 32) + static_cast<unsigned>(column);
}

} // namespace

bool HasLines(MatrixName const& name)
{
    return name.format == MatrixFormat::kMatrixMarket || name.format == MatrixFormat::kTriplets || name.format == MatrixFormat::kTriplets2;
}

Found<RepeatedEntry> FindRepeated(MatrixName const& name, KVOSrvSparseRows const& matrix)
{
    Found<RepeatedEntry> repeated;
    std::vector<bool> isMet(static_cast<std::size_t>(matrix.entries));
    ForEachPlaceOf(name, [&](int row, int column, std::int64_t line, bool) {
        if (row < 0 || row >= matrix.rows)
            return;
        int const* const begin = matrix.columnIndices + matrix.rowStart[row];
        int const* const end = matrix.columnIndices + matrix.rowStart[row + 1];
        int const* const found = std::lower_bound(begin, end, column);
        if (found == end || *found != column)
            return; // a 0 of an array, which is not stored
        auto const k = static_cast<std::size_t>(found - matrix.columnIndices);
        if (isMet[k])
            repeated.Add({{row, column, matrix.values[k]}, line});
        isMet[k] = true;
    });
    return repeated;
}

void FindLines(MatrixName const& name, std::vector<EntryPlace*> const& wanted)
{
    if (wanted.empty())
        return;
    int rows = 0;
    for (EntryPlace const* const place : wanted)
        rows = std::max({rows, place->row + 1, place->column + 1});
    std::vector<bool> isWanted(static_cast<std::size_t>(rows)); // of nearly all lines, one look here tells that they are not
    std::unordered_multimap<std::uint64_t, EntryPlace*> places;
    for (EntryPlace* const place : wanted) {
        isWanted[static_cast<std::size_t>(place->row)] = isWanted[static_cast<std::size_t>(place->column)] = true;
        places.emplace(Key(place->row, place->column), place);
    }
    ForEachPlaceOf(name, [&](int row, int column, std::int64_t line, bool isTriangle) {
        if (row < 0 || row >= rows || !isWanted[static_cast<std::size_t>(row)])
            return;
        auto const tell = [&](int i, int j) {
            auto const [first, end] = places.equal_range(Key(i, j));
            for (auto place = first; place != end; ++place)
                if (place->second->line == 0)
                    place->second->line = line;
        };
        tell(row, column);
        if (isTriangle && row != column)
            tell(column, row);
    });
}
