#include "DenseFileWriter.h"

#include "Errors.h"
#include "OutputFile.h"
#include "Progress.h"

#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"

#include <cstdint>
#include <fstream>

void WriteDenseFile(KVOSrvDenseMatrix const& matrix, OutputFile const& file)
{
    Progress progress("writing " + file.Path());
    std::int32_t const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    std::int32_t const header[] = {rows, columns, rows, columns};
    std::ofstream out(file.TemporaryPath(), std::ios::binary);
    out.write(reinterpret_cast<char const*>(header), sizeof header);
    KVOSrvMatrix column(rows, 1, nullptr, false, false);
    for (int j = 0; j < columns && rows > 0 && out; ++j) {
        progress.Set(static_cast<double>(j) / columns);
        matrix.GetColumns(j, j, column);
        out.write(reinterpret_cast<char const*>(column.Values()), std::streamsize{rows} * 8);
    }
    out.close();
    if (!out)
        throw ToolError(ExitCode::kUnwritable, file.Path() + ": cannot be written; make room or write elsewhere");
}
