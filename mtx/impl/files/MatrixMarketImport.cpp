#include "KVOSrvSparseMatrix.h"
#include "LineReader.h"
#include "MalformedFile.h"
#include "MatrixMarket.h"

#include <algorithm>
#include <climits>
#include <string>
#include <string_view>

namespace
{

constexpr char kComment = '%';

struct Header {
    bool array = false;
    bool integer = false;
    bool symmetric = false;
    std::int64_t rows = 0;
    std::int64_t columns = 0;
    std::int64_t entries = 0;
};

std::string LowerCase(std::string_view word)
{
    std::string lower(word);
    std::ranges::transform(lower, lower.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return lower;
}

void ReadBanner(LineReader& lines, Header& header)
{
    if (!lines.Next())
        lines.Refuse("expected " + Quoted(MatrixMarket::kMark) + ", found the end of the file");
    if (std::string_view const mark = lines.Word(); mark != MatrixMarket::kMark)
        lines.RefuseWord(Quoted(MatrixMarket::kMark), mark);
    if (std::string_view const object = lines.Word(); LowerCase(object) != "matrix")
        lines.RefuseWord("\"matrix\"", object);

    std::string_view const layout = lines.Word();
    header.array = LowerCase(layout) == "array";
    if (!header.array && LowerCase(layout) != "coordinate")
        lines.RefuseWord("\"coordinate\" or \"array\"", layout);
    std::string_view const field = lines.Word();
    std::string const kind = LowerCase(field);
    header.integer = kind == "integer";
    if (kind == "pattern")
        lines.Refuse("a pattern matrix has no values, which are needed here; write the file with the field \"real\"");
    if (kind == "complex")
        lines.Refuse("a complex matrix cannot be held; write its real and its imaginary part into files of their own");
    if (!header.integer && kind != "real" && kind != "double")
        lines.RefuseWord("\"real\" or \"integer\"", field);
    std::string_view const symmetry = lines.Word();
    std::string const storage = LowerCase(symmetry);
    header.symmetric = storage == "symmetric";
    if (storage == "skew-symmetric" || storage == "hermitian")
        lines.Refuse("a " + storage + " file cannot be read; write all of the matrix as \"general\"");
    if (!header.symmetric && storage != "general")
        lines.RefuseWord("\"general\" or \"symmetric\"", symmetry);
    lines.RequireEndOfLine();
}

void ReadSizes(LineReader& lines, Header& header)
{
    constexpr std::int64_t kMost = INT_MAX - 1; // as AddData() takes

    if (!lines.NextData(kComment))
        lines.Refuse("the file ends here, expected the line with the sizes");
    header.rows = lines.TakeIntegerIn(0, kMost, "the number of rows");
    header.columns = lines.TakeIntegerIn(0, kMost, "the number of columns");
    if (header.symmetric && header.rows != header.columns)
        lines.Refuse("a symmetric matrix has as many columns as rows, found " + std::to_string(header.rows) + " and " +
                     std::to_string(header.columns));
    if (header.array)
        header.entries = header.symmetric ? header.rows * (header.rows + 1) / 2 : header.rows * header.columns;
    else
        header.entries = lines.TakeIntegerIn(0, INT_MAX, "the number of entries");
    lines.RequireEndOfLine();
}

void NextEntry(LineReader& lines, std::int64_t read, Header const& header)
{
    if (!lines.NextData(kComment))
        lines.Refuse("the file ends here, after " + std::to_string(read) + " of " + std::to_string(header.entries) + " entries");
}

double TakeValue(LineReader& lines, Header const& header)
{
    double const value = header.integer ? static_cast<double>(lines.TakeInteger("a whole number")) : lines.TakeValue("a value");
    lines.RequireEndOfLine();
    return value;
}

void Add(KVOSrvSparseMatrix& matrix, Header const& header, std::int64_t row, std::int64_t column, double value)
{
    auto const i = static_cast<unsigned>(row), j = static_cast<unsigned>(column);
    matrix.AddData(i, j, value);
    if (header.symmetric && i != j)
        matrix.AddData(j, i, value);
}

void ReadCoordinates(LineReader& lines, Header const& header, KVOSrvSparseMatrix& matrix)
{
    for (std::int64_t k = 0; k < header.entries; ++k) {
        NextEntry(lines, k, header);
        std::int64_t const row = lines.TakeIntegerIn(1, header.rows, "a row"), column = lines.TakeIntegerIn(1, header.columns, "a column");
        if (header.symmetric && column > row)
            lines.Refuse("a symmetric file holds the lower triangle only, found row " + std::to_string(row) + ", column " +
                         std::to_string(column));
        Add(matrix, header, row - 1, column - 1, TakeValue(lines, header));
    }
}

void ReadArray(LineReader& lines, Header const& header, KVOSrvSparseMatrix& matrix)
{
    std::int64_t read = 0;
    for (std::int64_t column = 0; column < header.columns; ++column)
        for (std::int64_t row = header.symmetric ? column : 0; row < header.rows; ++row) {
            NextEntry(lines, read++, header);
            if (double const value = TakeValue(lines, header); value != 0.0)
                Add(matrix, header, row, column, value);
        }
}

} // namespace

std::unique_ptr<KVOSrvSparseMatrix> KVOSrvSparseMatrix::ReadMatrixMarket(char const* path)
{
    return WithPathOf(path, [path] {
        LineReader lines(path);
        Header header;
        ReadBanner(lines, header);
        ReadSizes(lines, header);
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(static_cast<int>(header.rows), static_cast<int>(header.columns));
        matrix->BeginAssembly();
        if (header.array)
            ReadArray(lines, header, *matrix);
        else
            ReadCoordinates(lines, header, *matrix);
        if (lines.NextData(kComment))
            lines.Refuse("expected the end of the file after " + std::to_string(header.entries) + " entries, found more");
        matrix->EndAssembly();
        return matrix;
    });
}

KVOSrvSparseMatrix* KVOSrvSparseMatrix::ImportMatrixMarket(char const* path)
{
    return ReadMatrixMarket(path).release();
}
