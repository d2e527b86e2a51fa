#include "HarwellBoeing.h"

#include "FortranFields.h"
#include "KVOSrvSparseMatrix.h"
#include "MalformedFile.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <optional>
#include <string>

namespace
{

constexpr std::string_view kFields = "RCIPQrcipq", kSymmetries = "SUHZRsuhzr", kStorages = "AEae";

struct Header {
    char field = 'R';    // real, complex, integer, pattern
    char symmetry = 'U'; // symmetric, unsymmetric, Hermitian, skew-symmetric, rectangular
    std::int64_t rows = 0;
    std::int64_t columns = 0;
    std::int64_t entries = 0;
    FortranFormat pointers;
    FortranFormat indices;
    FortranFormat values;
    std::int64_t lines = 4;
    bool hasRightHandSides = false;

    std::int64_t LinesBeforeValues() const noexcept
    {
        return field == 'P' ? 0 : lines + pointers.LinesOf(columns + 1) + indices.LinesOf(entries);
    }
    bool HasTriangle() const noexcept { return symmetry == 'S' || symmetry == 'H' || symmetry == 'Z'; }
};

bool IsType(std::string_view word)
{
    return word.size() == 3 && kFields.find(word[0]) != std::string_view::npos && kSymmetries.find(word[1]) != std::string_view::npos &&
           kStorages.find(word[2]) != std::string_view::npos;
}

char UpperCase(char c)
{
    return c >= 'a' ? static_cast<char>(c - 32) : c;
}

void NextLine(LineReader& lines)
{
    if (!lines.Next())
        lines.Refuse("the file ends here, within the head of a Harwell-Boeing file");
}

// How many lines the parts take is what their formats say; of right-hand sides the head tells whether there are some.
void ReadCounts(LineReader& lines, Header& header, bool& hasValues)
{
    NextLine(lines);
    std::array<std::int64_t, 5> counts{}; // all lines, those of pointers, indices, values, right-hand sides
    for (std::size_t k = 0; k < counts.size() && (k < 4 || !lines.IsAtEnd()); ++k)
        counts[k] = lines.TakeIntegerIn(0, INT64_MAX, "a number of lines");
    hasValues = counts[3] > 0;
    header.hasRightHandSides = counts[4] > 0;
    header.lines += header.hasRightHandSides;
}

void ReadType(LineReader& lines, Header& header, bool hasValues, KVOSrvMatrixPart part)
{
    NextLine(lines);
    std::string_view const type = lines.Word();
    if (!IsType(type))
        lines.RefuseWord("a type of three letters as RSA", type);
    header.field = UpperCase(type[0]);
    header.symmetry = UpperCase(type[1]);
    if (UpperCase(type[2]) == 'E')
        lines.Refuse("a matrix in elements cannot be read; write it assembled, with a type that ends in A");
    if (header.field == 'Q' || (header.field != 'P' && !hasValues))
        lines.Refuse("the values of this matrix are not in the file; a pattern has a type that begins with P");
    if (header.field == 'C' && part == KVOSrvMatrixPart::kWhole)
        lines.Refuse("a complex matrix cannot be held; write its real and its imaginary part into files of their own");
    header.rows = lines.TakeIntegerIn(0, INT_MAX - 1, "the number of rows");
    header.columns = lines.TakeIntegerIn(0, INT_MAX - 1, "the number of columns");
    header.entries = lines.TakeIntegerIn(0, INT_MAX, "the number of entries");
    if (header.HasTriangle() && header.rows != header.columns)
        lines.Refuse("a symmetric matrix has as many columns as rows, found " + std::to_string(header.rows) + " and " +
                     std::to_string(header.columns));
}

void ReadFormats(LineReader& lines, Header& header)
{
    constexpr std::size_t kWidth = 16, kWidthOfValues = 20;
    NextLine(lines);
    std::string_view const line = lines.Rest();
    auto const take = [&](FortranFormat& format, std::size_t place, std::size_t width, bool integers) {
        std::string_view const text = place < line.size() ? line.substr(place, width) : std::string_view();
        if (!format.Parse(text) || (integers && format.kind != 'I'))
            lines.RefuseWord(integers ? "a format of integers as (16I5)" : "a format of numbers as (5E16.8)", text);
    };
    take(header.pointers, 0, kWidth, true);
    take(header.indices, kWidth, kWidth, true);
    if (header.field != 'P')
        take(header.values, 2 * kWidth, kWidthOfValues, header.field == 'I');
}

Header ReadHeader(char const* path, KVOSrvMatrixPart part)
{
    LineReader lines(path);
    Header header;
    bool hasValues = false;
    NextLine(lines); // the title
    ReadCounts(lines, header, hasValues);
    ReadType(lines, header, hasValues, part);
    ReadFormats(lines, header);
    return header;
}

/// The three parts of a file, each read on its own from where it begins, so that none has to be kept.
class Columns
{
public:
    Columns(char const* path, Header const& header, KVOSrvMatrixPart part)
        : m_header(header), m_part(part), m_pointers(path, header.pointers, header.lines, header.columns + 1),
          m_indices(path, header.indices, header.lines + header.pointers.LinesOf(header.columns + 1), header.entries),
          m_values(path, header.values, header.LinesBeforeValues(), header.entries * (header.field == 'C' ? 2 : 1))
    {
    }

    void AddTo(KVOSrvSparseMatrix& matrix)
    {
        std::int64_t begin = m_pointers.TakeInteger(1, 1, "the first pointer");
        for (std::int64_t column = 0; column < m_header.columns; ++column) {
            std::int64_t const behind = m_header.entries + 1, least = column + 1 < m_header.columns ? begin : behind;
            std::int64_t const end = m_pointers.TakeInteger(least, behind, "a pointer");
            for (; begin < end; ++begin)
                AddEntry(matrix, m_indices.TakeInteger(1, m_header.rows, "a row") - 1, column);
        }
        if (begin != m_header.entries + 1)
            m_pointers.Lines().Refuse("a matrix without columns has no entries, found " + std::to_string(m_header.entries));
        RequireEnd((m_header.field == 'P' ? m_indices : m_values).Lines());
    }

private:
    void AddEntry(KVOSrvSparseMatrix& matrix, std::int64_t row, std::int64_t column)
    {
        double const value = m_header.field == 'P' ? 1.0 : TakeValue();
        auto const i = static_cast<unsigned>(row), j = static_cast<unsigned>(column);
        matrix.AddData(i, j, value);
        if (!m_header.HasTriangle() || i == j)
            return;
        // The lower triangle by the letter, but files with the upper one are about; with both, entries would be there twice.
        if (m_isLower.value_or(i > j) != (i > j))
            m_indices.Lines().Refuse("a symmetric file holds one triangle only, found row " + std::to_string(i + 1) + ", column " +
                                     std::to_string(j + 1));
        m_isLower = i > j;
        bool const isNegated = m_header.symmetry == 'Z' || (m_header.symmetry == 'H' && m_part == KVOSrvMatrixPart::kImaginary);
        matrix.AddData(j, i, isNegated ? -value : value);
    }

    double TakeValue()
    {
        double const value = m_values.TakeValue("a value");
        if (m_header.field != 'C')
            return value;
        double const imaginary = m_values.TakeValue("an imaginary part");
        return m_part == KVOSrvMatrixPart::kReal ? value : imaginary;
    }

    // All is read, so that a compressed file is known to be sound.
    void RequireEnd(LineReader& lines) const
    {
        while (lines.Next())
            if (!m_header.hasRightHandSides && !lines.IsAtEnd())
                lines.Refuse("expected the end of the file after " + std::to_string(m_header.entries) + " entries, found more");
    }

    Header const& m_header;
    KVOSrvMatrixPart m_part;
    FortranFields m_pointers;
    FortranFields m_indices;
    FortranFields m_values;
    std::optional<bool> m_isLower;
};

} // namespace

bool HarwellBoeing::LooksLike(std::string_view begin)
{
    auto const nextLine = [&begin] {
        std::size_t const end = std::min(begin.find('\n'), begin.size());
        std::string_view const line = begin.substr(0, end);
        begin.remove_prefix(std::min(end + 1, begin.size()));
        return line;
    };
    nextLine();
    nextLine();
    std::string_view const type = nextLine(), formats = nextLine();
    std::size_t const first = formats.find_first_not_of(' ');
    return IsType(type.substr(0, 3)) && type.substr(3, 1) == " " && first != std::string_view::npos && formats[first] == '(';
}

std::unique_ptr<KVOSrvSparseMatrix> HarwellBoeing::Read(char const* path, KVOSrvMatrixPart part)
{
    return WithPathOf(path, [path, part] {
        Header const header = ReadHeader(path, part);
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(static_cast<int>(header.rows), static_cast<int>(header.columns));
        matrix->BeginAssembly();
        Columns(path, header, part).AddTo(*matrix);
        matrix->EndAssembly();
        return matrix;
    });
}
