#include "KVOSrvSparseMatrix.h"
#include "LineReader.h"
#include "MalformedFile.h"
#include "MatrixMarket.h"

#include <algorithm>
#include <climits>
#include <string>
#include <string_view>
#include <utility>

namespace
{

constexpr char kComment = '%';

enum class Field { kReal, kInteger, kComplex, kPattern };

struct Header {
    bool array = false;
    Field field = Field::kReal;
    bool triangle = false; // the lower one, the diagonal too unless `skew`
    bool skew = false;
    double mirrored = 1.0; // what a value is multiplied by at its mirrored place
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

Field ReadField(LineReader& lines, KVOSrvMatrixPart part)
{
    std::string_view const word = lines.Word();
    std::string const field = LowerCase(word);
    if (field == "real" || field == "double")
        return Field::kReal;
    if (field == "integer")
        return Field::kInteger;
    if (field == "pattern")
        return Field::kPattern;
    if (field != "complex")
        lines.RefuseWord("\"real\", \"integer\", \"complex\" or \"pattern\"", word);
    if (part == KVOSrvMatrixPart::kWhole)
        lines.Refuse("a complex matrix cannot be held; write its real and its imaginary part into files of their own");
    return Field::kComplex;
}

void ReadSymmetry(LineReader& lines, Header& header, KVOSrvMatrixPart part)
{
    std::string_view const word = lines.Word();
    std::string const symmetry = LowerCase(word);
    header.skew = symmetry == "skew-symmetric";
    bool const hermitian = symmetry == "hermitian";
    header.triangle = symmetry == "symmetric" || header.skew || hermitian;
    header.mirrored = header.skew || (hermitian && part == KVOSrvMatrixPart::kImaginary) ? -1.0 : 1.0;
    if (!header.triangle && symmetry != "general")
        lines.RefuseWord("\"general\", \"symmetric\", \"skew-symmetric\" or \"hermitian\"", word);
    if (hermitian && header.field != Field::kComplex)
        lines.Refuse("only a complex matrix is \"hermitian\"; a real one is \"symmetric\"");
    if (header.skew && header.field == Field::kPattern)
        lines.Refuse("a pattern has no signs, so that it cannot be \"skew-symmetric\"");
}

void ReadBanner(LineReader& lines, Header& header, KVOSrvMatrixPart part)
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
    header.field = ReadField(lines, part);
    if (header.array && header.field == Field::kPattern)
        lines.Refuse("an array holds values, found \"pattern\"");
    ReadSymmetry(lines, header, part);
    lines.RequireEndOfLine();
}

void ReadSizes(LineReader& lines, Header& header)
{
    constexpr std::int64_t kMost = INT_MAX - 1; // as AddData() takes

    if (!lines.NextData(kComment))
        lines.Refuse("the file ends here, expected the line with the sizes");
    header.rows = lines.TakeIntegerIn(0, kMost, "the number of rows");
    header.columns = lines.TakeIntegerIn(0, kMost, "the number of columns");
    if (header.triangle && header.rows != header.columns)
        lines.Refuse("a symmetric matrix has as many columns as rows, found " + std::to_string(header.rows) + " and " +
                     std::to_string(header.columns));
    if (header.array)
        header.entries = header.triangle ? header.rows * (header.rows + (header.skew ? -1 : 1)) / 2 : header.rows * header.columns;
    else
        header.entries = lines.TakeIntegerIn(0, INT_MAX, "the number of entries");
    lines.RequireEndOfLine();
}

void NextEntry(LineReader& lines, std::int64_t read, Header const& header)
{
    if (!lines.NextData(kComment))
        lines.Refuse("the file ends here, after " + std::to_string(read) + " of " + std::to_string(header.entries) + " entries");
}

// The value of an entry, and whether it is 0 in both parts.
struct Value {
    double number;
    bool isZero;
};

Value TakeValue(LineReader& lines, Header const& header, KVOSrvMatrixPart part)
{
    double value = 1.0, other = 0.0;
    if (header.field == Field::kInteger)
        value = static_cast<double>(lines.TakeInteger("a whole number"));
    else if (header.field != Field::kPattern)
        value = lines.TakeValue("a value");
    if (header.field == Field::kComplex) {
        other = lines.TakeValue("an imaginary part");
        if (part == KVOSrvMatrixPart::kImaginary)
            std::swap(value, other);
    }
    lines.RequireEndOfLine();
    return {value, value == 0.0 && other == 0.0};
}

void Add(KVOSrvSparseMatrix& matrix, Header const& header, std::int64_t row, std::int64_t column, double value)
{
    auto const i = static_cast<unsigned>(row), j = static_cast<unsigned>(column);
    matrix.AddData(i, j, value);
    if (header.triangle && i != j)
        matrix.AddData(j, i, header.mirrored * value);
}

void ReadCoordinates(LineReader& lines, Header const& header, KVOSrvMatrixPart part, KVOSrvSparseMatrix& matrix)
{
    for (std::int64_t k = 0; k < header.entries; ++k) {
        NextEntry(lines, k, header);
        std::int64_t const row = lines.TakeIntegerIn(1, header.rows, "a row"), column = lines.TakeIntegerIn(1, header.columns, "a column");
        if (header.triangle && column > row - (header.skew ? 1 : 0))
            lines.Refuse(std::string(header.skew ? "a skew-symmetric file holds what is below the diagonal"
                                                 : "a symmetric file holds the lower triangle") +
                         " only, found row " + std::to_string(row) + ", column " + std::to_string(column));
        Add(matrix, header, row - 1, column - 1, TakeValue(lines, header, part).number);
    }
}

void ReadArray(LineReader& lines, Header const& header, KVOSrvMatrixPart part, KVOSrvSparseMatrix& matrix)
{
    std::int64_t read = 0;
    for (std::int64_t column = 0; column < header.columns; ++column)
        for (std::int64_t row = header.triangle ? column + (header.skew ? 1 : 0) : 0; row < header.rows; ++row) {
            NextEntry(lines, read++, header);
            if (Value const value = TakeValue(lines, header, part); !value.isZero)
                Add(matrix, header, row, column, value.number);
        }
}

} // namespace

std::unique_ptr<KVOSrvSparseMatrix> MatrixMarket::Read(char const* path, KVOSrvMatrixPart part)
{
    return WithPathOf(path, [path, part] {
        LineReader lines(path);
        Header header;
        ReadBanner(lines, header, part);
        ReadSizes(lines, header);
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(static_cast<int>(header.rows), static_cast<int>(header.columns));
        matrix->BeginAssembly();
        if (header.array)
            ReadArray(lines, header, part, *matrix);
        else
            ReadCoordinates(lines, header, part, *matrix);
        if (lines.NextData(kComment))
            lines.Refuse("expected the end of the file after " + std::to_string(header.entries) + " entries, found more");
        matrix->EndAssembly();
        return matrix;
    });
}

std::unique_ptr<KVOSrvSparseMatrix> KVOSrvSparseMatrix::ReadMatrixMarket(char const* path)
{
    return MatrixMarket::Read(path, KVOSrvMatrixPart::kWhole);
}

KVOSrvSparseMatrix* KVOSrvSparseMatrix::ImportMatrixMarket(char const* path)
{
    return ReadMatrixMarket(path).release();
}
