#include "KVOFsmSystemDofDefinition.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseImExPorter.h"
#include "MatrixFiles.h"
#include "MatrixText.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace
{

constexpr char kSource[] = "mtx/impl/KVOSrvSparseImExPorterTextExport";
constexpr unsigned kPermissions = 0666;

class TextOutput
{
public:
    explicit TextOutput(char const* path) : m_file(path, OutputFile::Existing::kTruncate, kPermissions) {}

    /// Writes the integers, each with `separator` behind it, then the padding, the value and the end of the line.
    void Line(int first, std::initializer_list<int> others, char separator, char const* padding, double value)
    {
        constexpr std::size_t kLongestLine = 80; // four integers of 11 characters, a value of 24, what separates them
        char* text = WriteFirst(m_file.Room(kLongestLine), first);
        for (int const integer : others) {
            *text++ = separator;
            text = MatrixText::WriteInteger(text, integer);
        }
        *text++ = separator;
        for (; *padding != '\0'; ++padding)
            *text++ = *padding;
        text = MatrixText::WriteValue(text, value);
        *text++ = '\n';
        m_file.Commit(text);
    }

    void Close() { m_file.Close(); }

private:
    // The first integer of a line is the row, the same for many lines in turn.
    char* WriteFirst(char* text, int integer)
    {
        if (integer != m_first || m_firstLength == 0) {
            m_first = integer;
            m_firstLength = MatrixText::WriteInteger(m_firstText, integer) - m_firstText;
        }
        std::memcpy(text, m_firstText, sizeof m_firstText);
        return text + m_firstLength;
    }

    OutputFile m_file;
    int m_first = 0;
    std::ptrdiff_t m_firstLength = 0;
    char m_firstText[12];
};

// One more than the largest number of a row that holds an entry or, where columns are degrees of freedom too, of a column.
template<class Rows>
int DofsInUse(Rows const& rows, int rowCount, int const* columns)
{
    int count = 0;
    for (int i = 0; i < rowCount; ++i)
        for (std::int64_t k = rows.Begin(i); k < rows.End(i); ++k)
            count = std::max({count, i + 1, columns != nullptr ? columns[k] + 1 : 0});
    return count;
}

} // namespace

// "%ld %ld %18.15le\n", 1-based. A half-stored matrix is written in full, its diagonal first.
void KVOSrvSparseImExPorter::ExportTriplets(KVOSrvSparseMatrix const& matrix, char const* path)
{
    TextOutput file(path);
    bool const half = matrix.HoldsDiagonal();
    for (int i = 0; half && i < matrix.m_rowCount; ++i)
        file.Line(i + 1, {i + 1}, ' ', "", matrix.m_diagonal[i]);
    Rows const rows(matrix);
    for (int i = 0; i < matrix.m_rowCount; ++i)
        for (std::int64_t k = rows.Begin(i); k < rows.End(i); ++k) {
            int const row = i + 1, column = matrix.m_columnIndices[k] + 1;
            file.Line(row, {column}, ' ', "", matrix.m_values[k]);
            if (half)
                file.Line(column, {row}, ' ', "", matrix.m_values[k]);
        }
    file.Close();
}

// "%d,%d,%d,%d,%18.15e\n": node and degree of freedom of the row, the same of the column or, when the matrix is not square, the 0-based
// column and 0. Deliberate: of a half-stored matrix neither the diagonal nor the mirrored entries are written.
void KVOSrvSparseImExPorter::ExportNodesAndDofs(KVOSrvSparseMatrix const& matrix, char const* path, KVOFsmSystemDofDefinition const* dofs)
{
    bool const square = matrix.m_rowCount == matrix.m_columnCount;
    Rows const rows(matrix);
    if (dofs == nullptr || dofs->NumberOfDofs() < DofsInUse(rows, matrix.m_rowCount, square ? matrix.m_columnIndices.get() : nullptr))
        KVOSrvMtxUnsupportedExpFmt().Throw(kSource, __LINE__);

    TextOutput file(path);
    for (int i = 0; i < matrix.m_rowCount; ++i) {
        int node = 0, dof = 0;
        if (rows.Begin(i) < rows.End(i))
            dofs->NodeDofFromSolverDof(i, node, dof);
        for (std::int64_t k = rows.Begin(i); k < rows.End(i); ++k) {
            int columnNode = matrix.m_columnIndices[k], columnDof = 0;
            if (square)
                dofs->NodeDofFromSolverDof(columnNode, columnNode, columnDof);
            file.Line(node, {dof, columnNode, columnDof}, ',', "", matrix.m_values[k]);
        }
    }
    file.Close();
}

// "%d,%d, %18.15e\n", 0-based, a half-stored matrix as it is stored: each row's diagonal first.
void KVOSrvSparseImExPorter::ExportCommaSeparated(KVOSrvSparseMatrix const& matrix, char const* path)
{
    TextOutput file(path);
    bool const half = matrix.HoldsDiagonal();
    Rows const rows(matrix);
    for (int i = 0; i < matrix.m_rowCount; ++i) {
        if (half)
            file.Line(i, {i}, ',', " ", matrix.m_diagonal[i]);
        for (std::int64_t k = rows.Begin(i); k < rows.End(i); ++k)
            file.Line(i, {matrix.m_columnIndices[k]}, ',', " ", matrix.m_values[k]);
    }
    file.Close();
}
