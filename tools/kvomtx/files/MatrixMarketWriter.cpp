#include "MatrixMarket.h"

#include "Errors.h"
#include "OutputFile.h"
#include "Progress.h"
#include "SparseStructure.h"

#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

namespace
{

/// A text file whose failures are noticed.
class Text
{
public:
    explicit Text(OutputFile const& file) : m_path(file.Path()), m_file(std::fopen(file.TemporaryPath().c_str(), "wxe"))
    {
        if (m_file == nullptr)
            Fail();
    }
    ~Text()
    {
        if (m_file != nullptr)
            std::fclose(m_file);
    }
    Text(Text const&) = delete;
    Text& operator=(Text const&) = delete;

    Text& operator<<(std::string_view text)
    {
        if (std::fwrite(text.data(), 1, text.size(), m_file) != text.size())
            Fail();
        return *this;
    }
    template<class Number>
    Text& operator<<(Number number) requires std::is_arithmetic_v<Number>
    {
        char buffer[32];
        return *this << std::string_view(buffer, std::to_chars(buffer, buffer + sizeof buffer, number).ptr);
    }

    void Close()
    {
        int const failed = std::fclose(m_file);
        m_file = nullptr;
        if (failed != 0)
            Fail();
    }

private:
    [[noreturn]] void Fail() const
    {
        throw ToolError(ExitCode::kUnwritable, m_path + ": cannot be written: " + std::strerror(errno) + "; make room or write elsewhere");
    }

    std::string m_path;
    std::FILE* m_file;
};

} // namespace

void WriteMatrixMarket(KVOSrvSparseMatrix const& matrix, bool symmetric, OutputFile const& file)
{
    Progress progress("writing " + file.Path());
    SparseStructure const rows(matrix);
    auto const written = [&](int row, int column) { return !symmetric || column <= row; };
    std::int64_t count = 0;
    rows.ForEach([&](int row, int column, double) { count += written(row, column); });

    Text text(file);
    text << "%%MatrixMarket matrix coordinate real " << (symmetric ? "symmetric" : "general") << "\n";
    text << rows.Rows() << " " << rows.Columns() << " " << count << "\n";
    std::int64_t visited = 0;
    rows.ForEach([&](int row, int column, double value) {
        if (++visited % 65536 == 0)
            progress.Set(static_cast<double>(visited) / static_cast<double>(rows.Entries()));
        if (written(row, column))
            text << row + 1 << " " << column + 1 << " " << value << "\n";
    });
    text.Close();
}

void WriteMatrixMarket(KVOSrvDenseMatrix const& matrix, OutputFile const& file)
{
    Progress progress("writing " + file.Path());
    int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    Text text(file);
    text << "%%MatrixMarket matrix array real general\n" << rows << " " << columns << "\n";
    KVOSrvMatrix column(rows, 1, nullptr, false, false);
    for (int j = 0; j < columns && rows > 0; ++j) {
        progress.Set(static_cast<double>(j) / columns);
        matrix.GetColumns(j, j, column);
        for (int i = 0; i < rows; ++i)
            text << column.Values()[i] << "\n";
    }
    text.Close();
}
