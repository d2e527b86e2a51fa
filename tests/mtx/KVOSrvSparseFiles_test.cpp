#include "KVOFsmSystemDofDefinition.h"
#include "SparseOracle.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

namespace
{

using KVOSrvSparseFiles = SparseFilesTest;
constexpr int kImportFormats[] = {0, 1, 2, 3, 6, 7};
constexpr int kExportFormats[] = {3, 4, 5, 6, 7};

// A half-stored matrix, which every format can write, with a definition for its rows.
struct Exportable {
    static constexpr int kSize = 100;
    std::unique_ptr<KVOSrvSparseMatrix> const matrix = HalfStored(Half::Random(kSize, 4000, 2));
    KVOFsmSystemDofDefinition const definition{kSize, std::vector<int>(kSize).data(), std::vector<int>(kSize).data()};
};

TEST_F(KVOSrvSparseFiles, ReportsAnUnknownFormatWithItsPlace)
{
    auto const expectReport = []<class Exception>(Exception const*, auto const& call, std::string const& report) {
        try {
            call();
            ADD_FAILURE() << report;
        } catch (Exception const& error) {
            EXPECT_EQ(error.DeveloperReport().View(), report);
        }
    };
    KVOSrvSparseMatrix matrix(2, 2);
    matrix.AddData(1, 1, 3.0);
    for (int const format : {4, 5, 8, -1})
        expectReport(
            static_cast<KVOSrvMtxUnsupportedImpFmt*>(nullptr), [&] { matrix.Import("/no/such/file", format); },
            "KVOSrvSparseImExPorter: Unsupported import format.\nFile mtx/impl/KVOSrvSparseImExPorter, line 69");
    matrix.EndAssembly(); // nothing happens: the matrix was marked assembled
    EXPECT_EQ(matrix.NumberOfNonzeros(), 0);
    for (int const format : {0, 1, 2, 8, -1})
        expectReport(
            static_cast<KVOSrvMtxUnsupportedExpFmt*>(nullptr), [&] { matrix.Export(m_path.c_str(), format); },
            "KVOSrvSparseImExPorter: Unsupported export format.\nFile mtx/impl/KVOSrvSparseImExPorter, line 154");
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

TEST_F(KVOSrvSparseFiles, ReportsAPathThatCannotBeOpened)
{
    std::string const fifo = m_folder / "fifo", missing = m_folder / "missing/file", folder = m_folder / ".";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Exportable const exportable;
    Content const before = ContentOf(*exportable.matrix);
    for (char const* const path : {fifo.c_str(), missing.c_str(), folder.c_str(), "", static_cast<char const*>(nullptr), "/dev/zero"}) {
        std::string const name = path != nullptr ? path : "", message = "KVOSrvSparseImExPorter: Failed to open file " + name + ".";
        for (int const format : kImportFormats)
            ExpectThrows<KVOSrvMtxOpenFileException>(message, [&] { exportable.matrix->Import(path, format); });
        for (int const format : kExportFormats)
            if (name != "/dev/zero")
                ExpectThrows<KVOSrvMtxOpenFileException>(message, [&] { exportable.matrix->Export(path, format, &exportable.definition); });
    }
    EXPECT_EQ(ContentOf(*exportable.matrix), before);
}

TEST_F(KVOSrvSparseFiles, ReportsAWriteThatFails)
{
    Exportable const exportable;
    auto const expectWriteFailure = [&](std::string const& path, int format) {
        ExpectThrows<KVOSrvMtxFileWriteFailure>("Error at writing to file: " + path,
                                                [&] { exportable.matrix->Export(path.c_str(), format, &exportable.definition); });
    };
    auto const handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    for (int const format : kExportFormats) {
        expectWriteFailure("/dev/full", format);
        exportable.matrix->Export(m_path.c_str(), format, &exportable.definition);
        auto const size = std::filesystem::file_size(m_path);
        std::filesystem::remove(m_path);
        for (std::uintmax_t const limit : {std::uintmax_t{0}, std::uintmax_t{100}, size / 2, size - 1}) {
            rlimit const limited{limit, before.rlim_max}; // no file can grow beyond
            setrlimit(RLIMIT_FSIZE, &limited);
            expectWriteFailure(m_path, format);
            setrlimit(RLIMIT_FSIZE, &before);
            std::filesystem::remove(m_path);
        }
    }
    std::signal(SIGXFSZ, handler);
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
        auto const matrix = HalfStored(Half::Random(3, 2, 1));
        Content const before = ContentOf(*matrix);
        WriteFile(m_path, files[file]);
        ExpectUnchangedWithoutMemory(*matrix, [&] { matrix->Import(m_path.c_str(), formats[file]); });
        EXPECT_NE(ContentOf(*matrix), before);
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

TEST_F(KVOSrvSparseFiles, RealMatricesComeBack)
{
    for (std::string const name : {"bcsstk01", "bcsstm01", "bcsstk02", "bcsstm02r", "bcsstk11", "bcsstm12", "west0479", "illc1033"}) {
        SCOPED_TRACE(name);
        RealMatrix const real(KVO_DATA_FOLDER "/" + name + ".mtx");
        auto const full = real.full.Matrix();
        KVOSrvSparseMatrix again(0, 0), half(0, 0);
        std::string const text = Export(*full, 3);
        again.Import(m_path.c_str(), 3);
        EXPECT_EQ(Export(again, 3), text);
        EXPECT_EQ(again.NumberOfNonzeros(), full->NumberOfNonzeros());

        // Format 7 keeps every bit of what it does not drop.
        SparseOracle kept = real.full;
        std::erase_if(kept.places, [](auto const& entry) { return std::abs(entry.second) <= 1e-16; });
        Export(*full, 7);
        again.Import(m_path.c_str(), 7);
        EXPECT_TRUE(ContentOf(again) == kept.ExpectedContent());

        if (!real.symmetric)
            continue;
        Import(half, real.half.File(5), 1);
        ASSERT_EQ(SortedEntries(half), SortedEntries(*full));
        Export(half, 6);
        for (int const format : {1, 6}) {
            again.Import(m_path.c_str(), format);
            EXPECT_TRUE(ContentOf(again).entries == ContentOf(half).entries) << format;
            EXPECT_EQ(again.NumberOfNonzeros(), half.NumberOfNonzeros() + (format == 6 ? half.NumberOfRows() : 0));
        }
        Export(half, 3);
        again.Import(m_path.c_str(), 3); // the text holds the matrix in full
        EXPECT_EQ(again.NumberOfNonzeros(), full->NumberOfNonzeros());
    }
}

} // namespace
