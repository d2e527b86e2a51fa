#include "MatrixMarket.h"

#include "KVOSrvSparseMatrix.h"
#include "MatrixFiles.h"
#include "MatrixText.h"
#include "SparseRows.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace
{

// a(i, j) equals a(j, i) everywhere, an entry that is not stored being 0. A NaN equals nothing. IsSymmetric() is another question: it lets
// infinities of different sign pass, and does not know that an entry of value 0 is as good as none.
bool EqualsTranspose(KVOSrvSparseRows const& rows)
{
    if (rows.rows != rows.columns)
        return false;
    // Of each row that was passed the next entry right of the diagonal. Its mirror images come in ascending order.
    auto const next = KVOSrvSparseSupport::AllocateArray<unsigned>(rows.rows);
    // The entry of `row` in `column`, which is 0 where none is stored; null when one between it and the one before is not 0.
    auto const take = [&](int row, int column) -> double const* {
        static constexpr double kNone = 0.0;
        unsigned& k = next[row];
        unsigned const end = rows.rowStart[row + 1];
        for (; k < end && rows.columnIndices[k] < column; ++k)
            if (rows.values[k] != 0.0)
                return nullptr;
        return k < end && rows.columnIndices[k] == column ? &rows.values[k++] : &kNone;
    };
    for (int row = 0; row < rows.rows; ++row) {
        unsigned k = rows.rowStart[row];
        unsigned const end = rows.rowStart[row + 1];
        for (; k < end && rows.columnIndices[k] <= row; ++k) {
            int const column = rows.columnIndices[k];
            double const* const mirror = column < row ? take(column, row) : &rows.values[k];
            if (mirror == nullptr || !(*mirror == rows.values[k]))
                return false;
        }
        next[row] = k;
    }
    for (int row = 0; row < rows.rows; ++row)
        if (take(row, rows.columns) == nullptr)
            return false;
    return true;
}

// How many entries of a row are written: of a symmetric matrix those up to the diagonal.
unsigned EndOfRow(KVOSrvSparseRows const& rows, int row, bool symmetric)
{
    unsigned const begin = rows.rowStart[row], end = rows.rowStart[row + 1];
    int const* const columns = rows.columnIndices;
    return symmetric ? static_cast<unsigned>(std::upper_bound(columns + begin, columns + end, row) - columns) : end;
}

} // namespace

void MatrixMarket::WriteHead(OutputFile& file, char const* kind, std::initializer_list<std::int64_t> sizes)
{
    std::string text = std::string(kMark) + " matrix " + kind;
    char separator = '\n';
    for (std::int64_t const size : sizes) {
        text += separator + std::to_string(size);
        separator = ' ';
    }
    text += '\n';
    file.WriteItems(text.data(), std::ssize(text));
}

void MatrixMarket::Write(KVOSrvSparseRows const& rows, char const* path)
{
    constexpr std::size_t kLongestLine = 64; // two integers of 11 characters, a value of 24, what separates them

    bool const symmetric = EqualsTranspose(rows);
    std::int64_t count = 0;
    for (int row = 0; row < rows.rows; ++row)
        count += EndOfRow(rows, row, symmetric) - rows.rowStart[row];

    OutputFile file(path, OutputFile::Existing::kTruncate, 0666);
    WriteHead(file, symmetric ? "coordinate real symmetric" : "coordinate real general", {rows.rows, rows.columns, count});
    for (int row = 0; row < rows.rows; ++row) {
        unsigned const end = EndOfRow(rows, row, symmetric);
        for (unsigned k = rows.rowStart[row]; k < end; ++k) {
            char* text = MatrixText::WriteInteger(file.Room(kLongestLine), row + 1);
            *text++ = ' ';
            text = MatrixText::WriteInteger(text, rows.columnIndices[k] + 1);
            *text++ = ' ';
            text = MatrixText::WriteShortest(text, rows.values[k]);
            *text++ = '\n';
            file.Commit(text);
        }
    }
    file.Close();
}

void KVOSrvSparseMatrix::ExportMatrixMarket(char const* path) const
{
    RequireAssembled("ExportMatrixMarket");
    if (!IsHalfStored())
        return MatrixMarket::Write(Rows(), path);
    std::unique_ptr<KVOSrvSparseMatrix> const full(Full());
    MatrixMarket::Write(full->Rows(), path);
}
