#include "KVOFsmSystemDofDefinition.h"
#include "SparseFiles.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <limits>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>

namespace
{

using KVOSrvSparseFiles = SparseFilesTest;
constexpr int kImportFormats[] = {0, 1, 2, 3, 6, 7};
constexpr int kExportFormats[] = {3, 4, 5, 6, 7};

// A half-stored matrix, which every format can write, with a definition for its rows.
struct Exportable {
    Exportable() : definition(kSize, std::vector<int>(kSize).data(), std::vector<int>(kSize).data())
    {
        TemporaryFolder const folder;
        WriteFile(folder / "half", Half::Random(kSize, 4000, 2).File(4));
        matrix.Import((folder / "half").c_str(), 1);
    }

    static constexpr int kSize = 100;
    KVOSrvSparseMatrix matrix{0, 0};
    KVOFsmSystemDofDefinition definition;
};

TEST_F(KVOSrvSparseFiles, ReportsAnUnknownFormatWithItsPlace)
{
    KVOSrvSparseMatrix matrix(2, 2);
    matrix.AddData(1, 1, 3.0);
    for (int const format : {4, 5, 8, -1}) {
        try {
            matrix.Import("/no/such/file", format);
            ADD_FAILURE();
        } catch (KVOSrvMtxUnsupportedImpFmt const& error) {
            EXPECT_STREQ(error.DeveloperReport().c_str(), "KVOSrvSparseImExPorter: Unsupported import format.\n"
                                                          "File mtx/impl/KVOSrvSparseImExPorter, line 69");
        }
    }
    matrix.EndAssembly(); // nothing happens: the matrix was marked assembled
    EXPECT_EQ(matrix.NumberOfNonzeros(), 0);

    for (int const format : {0, 1, 2, 8, -1}) {
        try {
            matrix.Export(m_path.c_str(), format);
            ADD_FAILURE();
        } catch (KVOSrvMtxUnsupportedExpFmt const& error) {
            EXPECT_STREQ(error.DeveloperReport().c_str(), "KVOSrvSparseImExPorter: Unsupported export format.\n"
                                                          "File mtx/impl/KVOSrvSparseImExPorter, line 154");
        }
    }
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

void ExpectOpenFailure(auto const& call, char const* path)
{
    try {
        call();
        ADD_FAILURE() << path;
    } catch (KVOSrvMtxOpenFileException const& error) {
        EXPECT_EQ(error.AsString().c_str(), std::string("KVOSrvSparseImExPorter: Failed to open file ") + path + ".");
    }
}

TEST_F(KVOSrvSparseFiles, ReportsAPathThatCannotBeOpened)
{
    std::string const fifo = m_folder / "fifo", missing = m_folder / "missing/file", folder = m_folder / ".";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Exportable exportable;
    Content const before = ContentOf(exportable.matrix);
    for (char const* const path : {fifo.c_str(), missing.c_str(), folder.c_str(), "", static_cast<char const*>(nullptr)}) {
        for (int const format : kImportFormats)
            ExpectOpenFailure([&] { exportable.matrix.Import(path, format); }, path != nullptr ? path : "");
        for (int const format : kExportFormats)
            ExpectOpenFailure([&] { exportable.matrix.Export(path, format, &exportable.definition); }, path != nullptr ? path : "");
    }
    for (int const format : kImportFormats)
        ExpectOpenFailure([&] { exportable.matrix.Import("/dev/zero", format); }, "/dev/zero");
    EXPECT_EQ(ContentOf(exportable.matrix), before);
}

/// No file can grow beyond `bytes` while the object lives.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_before);
        rlimit limit = m_before;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(FileSizeLimit const&) = delete;
    FileSizeLimit& operator=(FileSizeLimit const&) = delete;

private:
    rlimit m_before;
    void (*m_handler)(int);
};

TEST_F(KVOSrvSparseFiles, ReportsAWriteThatFails)
{
    Exportable const exportable;
    auto const expectWriteFailure = [&](std::string const& path, int format) {
        try {
            exportable.matrix.Export(path.c_str(), format, &exportable.definition);
            ADD_FAILURE() << path << ' ' << format;
        } catch (KVOSrvMtxFileWriteFailure const& error) {
            EXPECT_EQ(error.AsString().c_str(), "Error at writing to file: " + path);
        }
    };
    for (int const format : kExportFormats) {
        expectWriteFailure("/dev/full", format);
        exportable.matrix.Export(m_path.c_str(), format, &exportable.definition);
        auto const size = std::filesystem::file_size(m_path);
        std::filesystem::remove(m_path);
        for (std::uintmax_t const limit : {std::uintmax_t{0}, std::uintmax_t{100}, size / 2, size - 1}) {
            FileSizeLimit const fileSizeLimit(limit);
            expectWriteFailure(m_path, format);
            std::filesystem::remove(m_path);
        }
    }
}

// Every allocation of every import fails once.
TEST_F(KVOSrvSparseFiles, KeepTheMatrixWhenMemoryRunsOut)
{
    Half const half = Half::Random(8, 20, 4);
    std::string const record = Bytes(4) + Bytes(1) + Bytes(4) + Bytes(16) + Bytes(1, 1, 2.0) + Bytes(16);
    std::string const files[] = {record,         half.File(2), "1 2 3 4 5 6", "4 5 6 1 2 3", half.File(), Bytes(1, 2, 1, 2, 3.0, 4.0),
                                 half.File(2, 1)};
    int const formats[] = {0, 1, 3, 3, 6, 7, 1};
    for (std::size_t file = 0; file < std::size(files); ++file) {
        SCOPED_TRACE("file " + std::to_string(file));
        KVOSrvSparseMatrix matrix(0, 0);
        Import(matrix, Half::Random(3, 2, 1).File(0), 1);
        Content const before = ContentOf(matrix);
        WriteFile(m_path, files[file]);
        int failures = 0;
        for (bool failed = true; failed; ++failures) {
            ASSERT_LT(failures, 1000);
            mem_FailAllocationAfter(failures);
            try {
                matrix.Import(m_path.c_str(), formats[file]);
                failed = false;
            } catch (std::bad_alloc const&) {
            }
            mem_FailAllocationAfter(-1);
            if (failed) {
                ASSERT_EQ(ContentOf(matrix), before) << failures;
            }
        }
        EXPECT_GT(failures, 3);
        EXPECT_NE(ContentOf(matrix), before);
    }
}

TEST_F(KVOSrvSparseFiles, AnImportReplacesEverything)
{
    KVOSrvSparseMatrix matrix(50, 60);
    matrix.AddData(1, 1, 3.0);
    matrix.AddData(40, 1, 3.0);
    Import(matrix, "1 2 3", 3);
    EXPECT_EQ(ContentOf(matrix), (Content{1, 2, 1, {MakeEntry(0, 1, 3.0)}}));
    matrix.EndAssembly(); // it is assembled
    EXPECT_EQ(matrix.NumberOfNonzeros(), 1);
    matrix.BeginAssembly();
    matrix.EndAssembly(); // and no entry is pending
    EXPECT_EQ(ContentOf(matrix), (Content{1, 2, 0, {}}));
}

// The Matrix Market file of a real matrix, a symmetric one also as the half that the file holds.
struct RealMatrix {
    explicit RealMatrix(std::string const& name)
    {
        std::ifstream file(std::string(KVO_DATA_FOLDER) + "/" + name + ".mtx");
        std::string line;
        std::getline(file, line);
        symmetric = line.find("symmetric") != std::string::npos;
        while (std::getline(file, line) && line[0] == '%')
            ;
        int rows = 0, columns = 0, count = 0;
        std::istringstream(line) >> rows >> columns >> count;
        full = std::make_unique<KVOSrvSparseMatrix>(rows, columns);
        half = Half(rows);
        unsigned row = 0, column = 0;
        double value = 0;
        for (; file >> row >> column >> value; --count) {
            full->AddData(row - 1, column - 1, value);
            if (!symmetric)
                continue;
            if (row == column) {
                half.diagonal[row - 1] = value;
            } else {
                full->AddData(column - 1, row - 1, value);
                half.rows[row - 1].emplace_back(column - 1, value);
            }
        }
        EXPECT_TRUE(row > 0 && count == 0) << name;
        full->EndAssembly();
    }

    std::unique_ptr<KVOSrvSparseMatrix> full;
    bool symmetric = false;
    Half half{0};
};

std::vector<std::string> Fields(std::string line)
{
    std::ranges::replace(line, ',', ' ');
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
}

// Rows and columns of a text export and the values it was given, within what sixteen digits keep.
void ExpectLines(std::string const& text, std::vector<Entry> const& entries, std::size_t rowField, std::size_t columnField)
{
    std::istringstream stream(text);
    std::string line;
    for (auto const& [row, column, bits] : entries) {
        ASSERT_TRUE(std::getline(stream, line));
        std::vector<std::string> const fields = Fields(line);
        ASSERT_EQ(fields.at(rowField), std::to_string(row));
        ASSERT_EQ(fields.at(columnField), std::to_string(column));
        double const value = std::bit_cast<double>(bits);
        ASSERT_NEAR(std::stod(fields.back()), value, 5e-16 * std::abs(value));
    }
    EXPECT_FALSE(std::getline(stream, line));
}

class RealSparseFiles : public SparseFilesTest, public testing::WithParamInterface<char const*>
{
};

TEST_P(RealSparseFiles, FullMatrixComesBack)
{
    RealMatrix const real(GetParam());
    Content const content = ContentOf(*real.full);
    KVOSrvSparseMatrix again(0, 0);

    std::string const text = Export(*real.full, 3);
    again.Import(m_path.c_str(), 3);
    EXPECT_EQ(Export(again, 3), text);
    EXPECT_EQ(again.NumberOfNonzeros(), content.nonzeros);

    // Format 7 keeps every bit of what it does not drop.
    Content kept = content;
    std::erase_if(kept.entries, [](Entry const& entry) { return std::abs(std::bit_cast<double>(std::get<2>(entry))) <= 1e-16; });
    kept.nonzeros = static_cast<int>(kept.entries.size());
    real.full->Export(m_path.c_str(), 7);
    again.Import(m_path.c_str(), 7);
    EXPECT_TRUE(ContentOf(again) == kept);

    ExpectLines(Export(*real.full, 5), content.entries, 0, 1);
    int const rows = content.rows;
    std::vector<int> nodes(static_cast<std::size_t>(rows)), dofs(nodes.size());
    for (int i = 0; i < rows; ++i) {
        nodes[static_cast<std::size_t>(i)] = 2 * i + 5;
        dofs[static_cast<std::size_t>(i)] = i % 6;
    }
    KVOFsmSystemDofDefinition const definition(rows, nodes.data(), dofs.data());
    std::vector<Entry> byNode = content.entries;
    for (auto& [row, column, bits] : byNode) {
        row = 2 * row + 5;
        column = content.rows == content.columns ? 2 * column + 5 : column;
    }
    real.full->Export(m_path.c_str(), 4, &definition);
    ExpectLines(ReadFile(m_path), byNode, 0, 2);
}

TEST_P(RealSparseFiles, HalfStorageComesBack)
{
    RealMatrix const real(GetParam());
    if (!real.symmetric)
        GTEST_SKIP() << "not symmetric";
    KVOSrvSparseMatrix matrix(0, 0), again(0, 0);
    Import(matrix, real.half.File(5), 1);
    ASSERT_EQ(SortedEntries(matrix), SortedEntries(*real.full));

    Export(matrix, 6);
    for (int const format : {1, 6}) {
        again.Import(m_path.c_str(), format);
        EXPECT_TRUE(ContentOf(again).entries == ContentOf(matrix).entries) << format;
        EXPECT_EQ(again.NumberOfNonzeros(), matrix.NumberOfNonzeros() + (format == 6 ? matrix.NumberOfRows() : 0));
    }
    Export(matrix, 3);
    again.Import(m_path.c_str(), 3); // the text holds the matrix in full
    EXPECT_EQ(again.NumberOfNonzeros(), real.full->NumberOfNonzeros());
}

INSTANTIATE_TEST_SUITE_P(Data, RealSparseFiles,
                         testing::Values("bcsstk01", "bcsstm01", "bcsstk02", "bcsstm02r", "bcsstk11", "bcsstm12", "west0479", "illc1033"),
                         [](auto const& matrix) { return std::string(matrix.param); });

} // namespace
