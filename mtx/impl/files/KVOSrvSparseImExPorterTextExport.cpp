// Export of text: formats 3, 4 and 5.

#include "KVOFsmSystemDofDefinition.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseImExPorter.h"
#include "MatrixFiles.h"
#include "MatrixText.h"
#include "mem_Vector.h"
#include "tasks.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <utility>

namespace
{

constexpr char kSource[] = "mtx/impl/KVOSrvSparseImExPorterTextExport";
constexpr unsigned kPermissions = 0666;

constexpr std::size_t kLongestLine = 80; // four integers of 11 characters, a value of 24, what separates them

/// Writes lines to a target, an OutputFile or LinesInMemory.
template<class Target>
class TextLines
{
public:
    explicit TextLines(Target& target) : m_target(target) {}

    /// Writes the integers, each with `separator` behind it, then the padding, the value and the end of the line.
    template<bool shortest = false>
    void Line(int first, std::initializer_list<int> others, char separator, char const* padding, double value)
    {
        char* text = WriteFirst(m_target.Room(kLongestLine), first);
        for (int const integer : others) {
            *text++ = separator;
            text = MatrixText::WriteInteger(text, integer);
        }
        *text++ = separator;
        for (; *padding != '\0'; ++padding)
            *text++ = *padding;
        text = shortest ? MatrixText::WriteShortest(text, value) : MatrixText::WriteValue(text, value);
        *text++ = '\n';
        m_target.Commit(text);
    }

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

    Target& m_target;
    int m_first = 0;
    std::ptrdiff_t m_firstLength = 0;
    char m_firstText[12];
};

/// Some lines on their way to a file.
class LinesInMemory
{
public:
    static constexpr std::int64_t kMostLines = 8192; // as many as the second-level cache holds

    LinesInMemory() : m_text(static_cast<char*>(mem_OperatorNewThrow(kMostLines * kLongestLine))), m_end(m_text.get()) {}

    char* Room(std::size_t) noexcept { return m_end; }
    void Commit(char* end) noexcept { m_end = end; }
    void MoveTo(OutputFile& file) { file.WriteItems(m_text.get(), std::exchange(m_end, m_text.get()) - m_text.get()); }

private:
    std::unique_ptr<char[], mem_Deleter> m_text;
    char* m_end;
};

/// Writes the lines of rows in tasks, some rows each, while the lines of the tasks before them go to the file.
template<class LinesOf, class WriteRow>
void WriteRowsInTasks(OutputFile& file, int rows, LinesOf const& linesOf, WriteRow const& writeRow)
{
    auto const atOnce = static_cast<std::size_t>(std::min(2 * blac::ThreadsForTasks(), blac::kMostThreads));
    mem_Vector<LinesInMemory> now(atOnce), before(atOnce);
    mem_Vector<int> begin(atOnce + 1); // of each task's rows
    int row = 0, tasks = 0;
    do {
        tasks = 0;
        for (; tasks < static_cast<int>(atOnce) && row < rows; ++tasks) {
            begin[static_cast<std::size_t>(tasks)] = row;
            for (std::int64_t lines = 0; row < rows && (lines += linesOf(row)) <= LinesInMemory::kMostLines;)
                ++row;
            begin[static_cast<std::size_t>(tasks) + 1] = row;
        }
        blac::InTasks(tasks + 1, [&](int task) {
            if (task == tasks) {
                for (LinesInMemory& lines : before)
                    lines.MoveTo(file);
                return;
            }
            auto const number = static_cast<std::size_t>(task);
            TextLines<LinesInMemory> lines(now[number]);
            for (int i = begin[number]; i < begin[number + 1]; ++i)
                writeRow(lines, i);
        });
        now.swap(before);
    } while (tasks > 0);
}

/// writeRow(lines, i) for each row i, which writes linesOf(i) lines.
template<class LinesOf, class WriteRow>
void WriteRows(OutputFile& file, int rows, LinesOf const& linesOf, WriteRow const& writeRow)
{
    std::int64_t all = 0, longest = 0;
    for (int i = 0; blac::ThreadsForTasks() > 1 && i < rows; ++i) {
        all += linesOf(i);
        longest = std::max(longest, linesOf(i));
    }
    if (all >= 2 * LinesInMemory::kMostLines && longest <= LinesInMemory::kMostLines)
        return WriteRowsInTasks(file, rows, linesOf, writeRow);
    TextLines<OutputFile> lines(file);
    for (int i = 0; i < rows; ++i)
        writeRow(lines, i);
}

// One more than the largest number of a row that holds an entry or, where columns are degrees of freedom too, of a column.
int DofsInUse(KVOSrvSparseRows const& rows, bool columnsToo)
{
    int count = 0;
    for (int i = 0; i < rows.rows; ++i)
        for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k)
            count = std::max({count, i + 1, columnsToo ? rows.columnIndices[k] + 1 : 0});
    return count;
}

std::int64_t LengthOf(KVOSrvSparseRows const& rows, int row)
{
    return rows.rowStart[row + 1] - rows.rowStart[row];
}

} // namespace

namespace
{

// 1-based. A half-stored matrix is written in full, its diagonal first.
template<bool shortest>
void WriteTripletLines(KVOSrvSparseRows const& rows, char const* path)
{
    OutputFile file(path, OutputFile::Existing::kTruncate, kPermissions);
    bool const half = rows.diagonal != nullptr;
    WriteRows(
        file, half ? rows.rows : 0, [](int) { return std::int64_t{1}; },
        [&](auto& lines, int i) { lines.template Line<shortest>(i + 1, {i + 1}, ' ', "", rows.diagonal[i]); });
    WriteRows(
        file, rows.rows, [&](int i) { return (half ? 2 : 1) * LengthOf(rows, i); },
        [&](auto& lines, int i) {
            for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k) {
                int const row = i + 1, column = rows.columnIndices[k] + 1;
                lines.template Line<shortest>(row, {column}, ' ', "", rows.values[k]);
                if (half)
                    lines.template Line<shortest>(column, {row}, ' ', "", rows.values[k]);
            }
        });
    file.Close();
}

} // namespace

// "%ld %ld %18.15le\n"
void KVOSrvSparseImExPorter::WriteTriplets(KVOSrvSparseRows const& rows, char const* path)
{
    WriteTripletLines<false>(rows, path);
}

void KVOSrvSparseImExPorter::WriteExactTriplets(KVOSrvSparseRows const& rows, char const* path)
{
    WriteTripletLines<true>(rows, path);
}

// "%d,%d,%d,%d,%18.15e\n": node and degree of freedom of the row, the same of the column or, when the matrix is not square, the 0-based
// column and 0. Deliberate: of a half-stored matrix neither the diagonal nor the mirrored entries are written.
void KVOSrvSparseImExPorter::WriteNodesAndDofs(KVOSrvSparseRows const& rows, char const* path, KVOFsmSystemDofDefinition const* dofs)
{
    bool const square = rows.rows == rows.columns;
    if (dofs == nullptr || dofs->NumberOfDofs() < DofsInUse(rows, square))
        KVOSrvMtxUnsupportedExpFmt().Throw(kSource, __LINE__);

    OutputFile file(path, OutputFile::Existing::kTruncate, kPermissions);
    WriteRows(
        file, rows.rows, [&](int i) { return LengthOf(rows, i); },
        [&](auto& lines, int i) {
            int node = 0, dof = 0;
            if (LengthOf(rows, i) > 0)
                dofs->NodeDofFromSolverDof(i, node, dof);
            for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k) {
                int columnNode = rows.columnIndices[k], columnDof = 0;
                if (square)
                    dofs->NodeDofFromSolverDof(columnNode, columnNode, columnDof);
                lines.Line(node, {dof, columnNode, columnDof}, ',', "", rows.values[k]);
            }
        });
    file.Close();
}

// "%d,%d, %18.15e\n", 0-based, a half-stored matrix as it is stored: each row's diagonal first.
void KVOSrvSparseImExPorter::WriteCommaSeparated(KVOSrvSparseRows const& rows, char const* path)
{
    OutputFile file(path, OutputFile::Existing::kTruncate, kPermissions);
    bool const half = rows.diagonal != nullptr;
    WriteRows(
        file, rows.rows, [&](int i) { return (half ? 1 : 0) + LengthOf(rows, i); },
        [&](auto& lines, int i) {
            if (half)
                lines.Line(i, {i}, ',', " ", rows.diagonal[i]);
            for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k)
                lines.Line(i, {rows.columnIndices[k]}, ',', " ", rows.values[k]);
        });
    file.Close();
}
