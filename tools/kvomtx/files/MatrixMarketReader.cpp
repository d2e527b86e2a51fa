#include "MatrixMarket.h"

#include "Errors.h"
#include "FileKind.h"
#include "Progress.h"
#include "Quoted.h"

#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace
{

/// The lines of a file, with their numbers.
class Lines
{
public:
    Lines(std::string const& path, Progress& progress) : m_path(path), m_file(std::fopen(path.c_str(), "re")), m_progress(progress)
    {
        if (m_file == nullptr)
            throw ToolError(ExitCode::kUnreadable, path + ": cannot be read; check its permissions");
        struct stat status {
        };
        fstat(fileno(m_file), &status);
        m_bytes = static_cast<double>(std::max<off_t>(1, status.st_size));
    }
    ~Lines()
    {
        std::free(m_line);
        std::fclose(m_file);
    }
    Lines(Lines const&) = delete;
    Lines& operator=(Lines const&) = delete;

    /// The next line; at the end of the file false.
    bool Next()
    {
        ssize_t const length = getline(&m_line, &m_capacity, m_file);
        if (length < 0) {
            if (std::ferror(m_file))
                throw ToolError(ExitCode::kUnreadable, m_path + ": reading failed behind line " + std::to_string(m_number));
            return false;
        }
        ++m_number;
        if (m_number % 65536 == 0)
            m_progress.Set(static_cast<double>(ftello(m_file)) / m_bytes);
        m_rest = std::string_view(m_line, static_cast<std::size_t>(length));
        return true;
    }
    /// The next line that is neither blank nor a comment.
    bool NextData()
    {
        while (Next())
            if (auto const first = m_rest.find_first_not_of(kSpace); first != std::string_view::npos && m_rest[first] != '%')
                return true;
        return false;
    }

    /// Takes the next word off the line; empty at its end.
    std::string_view Word()
    {
        std::size_t const first = std::min(m_rest.find_first_not_of(kSpace), m_rest.size());
        m_rest.remove_prefix(first);
        std::string_view const word = m_rest.substr(0, m_rest.find_first_of(kSpace));
        m_rest.remove_prefix(word.size());
        return word;
    }

    template<class Number>
    Number Take(char const* expected)
    {
        std::string_view word = Word();
        std::string_view const shown = word;
        if (word.starts_with('+') && !word.starts_with("+-"))
            word.remove_prefix(1);
        Number number{};
        auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
        // Beyond the range of doubles: infinite or 0, as everywhere in the library.
        if constexpr (std::is_same_v<Number, double>)
            if (error == std::errc::result_out_of_range && end == word.data() + word.size())
                return std::strtod(std::string(word).c_str(), nullptr);
        if (error != std::errc{} || end != word.data() + word.size())
            Expected(expected, shown);
        return number;
    }

    std::int64_t TakeIn(std::int64_t first, std::int64_t last, char const* what)
    {
        std::string const expected = std::string(what) + " from " + std::to_string(first) + " to " + std::to_string(last);
        char const* const before = m_rest.data();
        auto const number = Take<std::int64_t>(expected.c_str());
        if (number < first || number > last)
            Expected(expected, std::string_view(before, static_cast<std::size_t>(m_rest.data() - before)));
        return number;
    }

    void RequireEnd()
    {
        if (std::string_view const word = Word(); !word.empty())
            Expected("the end of the line", word);
    }

    [[noreturn]] void Expected(std::string const& expected, std::string_view found) const
    {
        auto const first = std::min(found.find_first_not_of(kSpace), found.size());
        found.remove_prefix(first);
        Refuse("expected " + expected + ", found " + (found.empty() ? "the end of the line" : Quoted(found)));
    }
    [[noreturn]] void Refuse(std::string const& text) const
    {
        throw ToolError(ExitCode::kUnreadable, m_path + ": line " + std::to_string(std::max<std::int64_t>(1, m_number)) + ": " + text);
    }

private:
    static constexpr char kSpace[] = " \t\r\n\v\f";

    std::string const& m_path;
    std::FILE* m_file;
    Progress& m_progress;
    double m_bytes = 1.0;
    char* m_line = nullptr;
    std::size_t m_capacity = 0;
    std::int64_t m_number = 0;
    std::string_view m_rest;
};

struct Header {
    bool array = false;
    bool integer = false;
    bool symmetric = false;
};

std::string LowerCase(std::string_view word)
{
    std::string lower(word);
    std::ranges::transform(lower, lower.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return lower;
}

Header ReadHeader(Lines& lines, std::string const& path)
{
    std::string const other = RecogniseOtherKind(path);
    if (!other.starts_with("this is a Matrix Market") && !other.empty())
        lines.Refuse("expected a Matrix Market file, but " + other);
    if (!lines.Next())
        lines.Refuse("expected \"%%MatrixMarket\", found the end of the file");
    if (std::string_view const mark = lines.Word(); mark != "%%MatrixMarket")
        lines.Expected("\"%%MatrixMarket\"", mark);
    if (std::string_view const object = lines.Word(); LowerCase(object) != "matrix")
        lines.Expected("\"matrix\"", object);

    Header header;
    std::string_view const layout = lines.Word();
    header.array = LowerCase(layout) == "array";
    if (!header.array && LowerCase(layout) != "coordinate")
        lines.Expected("\"coordinate\" or \"array\"", layout);
    std::string_view const field = lines.Word();
    std::string const kind = LowerCase(field);
    header.integer = kind == "integer";
    if (kind == "pattern")
        lines.Refuse("a pattern matrix has no values, and kvomtx computes with values; write the file with the field \"real\"");
    if (kind == "complex")
        lines.Refuse("a complex matrix cannot be held; write its real and its imaginary part into files of their own");
    if (!header.integer && kind != "real" && kind != "double")
        lines.Expected("\"real\" or \"integer\"", field);
    std::string_view const symmetry = lines.Word();
    std::string const storage = LowerCase(symmetry);
    header.symmetric = storage == "symmetric";
    if (storage == "skew-symmetric" || storage == "hermitian")
        lines.Refuse("a " + storage + " file cannot be read; write all of the matrix as \"general\"");
    if (!header.symmetric && storage != "general")
        lines.Expected("\"general\" or \"symmetric\"", symmetry);
    lines.RequireEnd();
    return header;
}

double TakeValue(Lines& lines, Header const& header)
{
    double const value = header.integer ? static_cast<double>(lines.Take<std::int64_t>("a whole number")) : lines.Take<double>("a value");
    lines.RequireEnd();
    return value;
}

void NextEntry(Lines& lines, std::int64_t read, std::int64_t count)
{
    if (!lines.NextData())
        lines.Refuse("the file ends here, after " + std::to_string(read) + " of " + std::to_string(count) + " entries");
}

void Add(KVOSrvSparseMatrix& matrix, Header const& header, std::int64_t row, std::int64_t column, double value)
{
    auto const i = static_cast<unsigned>(row), j = static_cast<unsigned>(column);
    matrix.AddData(i, j, value);
    if (header.symmetric && i != j)
        matrix.AddData(j, i, value);
}

void ReadCoordinates(Lines& lines, Header const& header, KVOSrvSparseMatrix& matrix, std::int64_t rows, std::int64_t columns,
                     std::int64_t count)
{
    for (std::int64_t k = 0; k < count; ++k) {
        NextEntry(lines, k, count);
        std::int64_t const row = lines.TakeIn(1, rows, "a row");
        std::int64_t const column = lines.TakeIn(1, columns, "a column");
        if (header.symmetric && column > row)
            lines.Refuse("a symmetric file holds the lower triangle only, found row " + std::to_string(row) + ", column " +
                         std::to_string(column));
        Add(matrix, header, row - 1, column - 1, TakeValue(lines, header));
    }
}

void ReadArray(Lines& lines, Header const& header, KVOSrvSparseMatrix& matrix, std::int64_t rows, std::int64_t columns, std::int64_t count)
{
    std::int64_t read = 0;
    for (std::int64_t column = 0; column < columns; ++column)
        for (std::int64_t row = header.symmetric ? column : 0; row < rows; ++row) {
            NextEntry(lines, read++, count);
            if (double const value = TakeValue(lines, header); value != 0.0)
                Add(matrix, header, row, column, value);
        }
}

} // namespace

std::unique_ptr<KVOSrvSparseMatrix> ReadMatrixMarket(std::string const& path, Progress& progress)
{
    Lines lines(path, progress);
    Header const header = ReadHeader(lines, path);
    if (!lines.NextData())
        lines.Refuse("the file ends here, expected the line with the sizes");
    constexpr std::int64_t kMost = INT_MAX - 1;
    std::int64_t const rows = lines.TakeIn(0, kMost, "the number of rows");
    std::int64_t const columns = lines.TakeIn(0, kMost, "the number of columns");
    if (header.symmetric && rows != columns)
        lines.Refuse("a symmetric matrix has as many columns as rows, found " + std::to_string(rows) + " and " + std::to_string(columns));
    std::int64_t count = header.symmetric ? rows * (rows + 1) / 2 : rows * columns;
    if (!header.array)
        count = lines.TakeIn(0, INT_MAX, "the number of entries");
    lines.RequireEnd();

    auto matrix = std::make_unique<KVOSrvSparseMatrix>(static_cast<int>(rows), static_cast<int>(columns));
    matrix->BeginAssembly();
    if (header.array)
        ReadArray(lines, header, *matrix, rows, columns, count);
    else
        ReadCoordinates(lines, header, *matrix, rows, columns, count);
    if (lines.NextData())
        lines.Refuse("expected the end of the file after " + std::to_string(count) + " entries, found more");
    matrix->EndAssembly();
    return matrix;
}
