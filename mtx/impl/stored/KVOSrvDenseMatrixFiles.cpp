// The files of stored matrices: written column by column, as they need not fit into memory.

#include "DenseFileHeader.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "MatrixFiles.h"
#include "MatrixMarket.h"
#include "MatrixText.h"

namespace
{

constexpr unsigned kPermissions = 0666;

// write(values) for one column after the other.
template<class Write>
void ForEachColumn(KVOSrvDenseMatrix const& matrix, Write const& write)
{
    int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    KVOSrvMatrix column(rows, 1, nullptr, false, false);
    for (int j = 0; j < columns && rows > 0; ++j) {
        matrix.GetColumns(j, j, column);
        write(column.Values());
    }
}

} // namespace

void KVOSrvDenseMatrix::ExportDense(char const* path) const
{
    int const rows = NumberOfRows(), columns = NumberOfColumns();
    OutputFile file(path, OutputFile::Existing::kTruncate, kPermissions);
    DenseFileHeader const header{rows, columns, rows, columns};
    file.WriteItems(&header, 1);
    ForEachColumn(*this, [&](double const* values) { file.WriteItems(values, rows); });
    file.Close();
}

void KVOSrvDenseMatrix::ExportMatrixMarket(char const* path) const
{
    constexpr std::size_t kLongestLine = 32;

    int const rows = NumberOfRows();
    OutputFile file(path, OutputFile::Existing::kTruncate, kPermissions);
    MatrixMarket::WriteHead(file, "array real general", {rows, NumberOfColumns()});
    ForEachColumn(*this, [&](double const* values) {
        for (int i = 0; i < rows; ++i) {
            char* const end = MatrixText::WriteShortest(file.Room(kLongestLine), values[i]);
            *end = '\n';
            file.Commit(end + 1);
        }
    });
    file.Close();
}
