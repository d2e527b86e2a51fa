#include "KVOFsmSystemDofDefinition.h"
#include "SparseOracle.h"

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
    auto const reportOf = [](auto const& call) {
        try {
            call();
        } catch (KVOBasException const& error) {
            return error.DeveloperReport();
        }
        return atr_String();
    };
    KVOSrvSparseMatrix matrix(2, 2);
    matrix.AddData(1, 1, 3.0);
    for (int const format : {4, 5, 8, -1})
        EXPECT_EQ(reportOf([&] { matrix.Import("/no/such/file", format); }).View(),
                  "KVOSrvSparseImExPorter: Unsupported import format.\nFile mtx/impl/KVOSrvSparseImExPorter, line 69");
    matrix.EndAssembly(); // nothing happens: the matrix was marked assembled
    EXPECT_EQ(matrix.NumberOfNonzeros(), 0);
    for (int const format : {0, 1, 2, 8, -1})
        EXPECT_EQ(reportOf([&] { matrix.Export(m_path.c_str(), format); }).View(),
                  "KVOSrvSparseImExPorter: Unsupported export format.\nFile mtx/impl/KVOSrvSparseImExPorter, line 154");
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

TEST_F(KVOSrvSparseFiles, SaysWhereAFileIsMalformed)
{
    Half const half = Half::Random(48, 176, 1);
    std::string const chunks = half.File(), text = "1 1 2.5\n";
    auto const changed = [&](std::size_t byte, int number) { return std::string(chunks).replace(byte, 4, Bytes(number)); };
    std::string const firstRecord = Bytes(4, 1, 4), ofRow1 = "byte 12: the record of row 1 ";
    struct Case {
        int format;
        std::string bytes;
        std::string report;
    } const cases[] = {
        {3, text + "1 x 3\n", "line 2: expected a column number (whole, from 1 to 2147483647), found \"x\""},
        {3, text + "\n0 1 3\n", "line 3: expected a row number (whole, from 1 to 2147483647), found \"0\""},
        {2, text + "1 1\n\n", "line 2: expected a value, found the end of the file"},
        {3, "1 1 \x01" + std::string(50, 'x'), "line 1: expected a value, found \"?xxxxxxxxxxxxxxxxxxxxxxx...\""},
        {3, std::string(300000, '\n') + text + "1",
         "line 300002: expected a column number (whole, from 1 to 2147483647), found the end of the file"},
        {1, chunks.substr(0, 20), "byte 20: the file ends here; the header of a chunked file takes 24 bytes"},
        {6, chunks.substr(0, 1000),
         "byte 1000: the file ends here; a matrix of order 48 with 176 entries, as its header says, takes 1573468"},
        {1, changed(0, -1), "byte 0: expected the number of rows of a chunked file, found -1"},
        {6, changed(4, -7), "byte 4: expected the number of entries"},
        {1, changed(8, 3), "byte 8: expected the number of chunks, 1 for 176 entries, found 3"},
        {1, changed(16, 31), "byte 16: expected the logarithm of the chunk length"},
        {1, changed(24, 1), "byte 24: expected 0 as the first row start, found 1"},
        {6, changed(28, 1000), "byte 28: expected a row start from 0 to 176, found 1000"},
        {6, changed(24 + 4 * 48, 175), "byte 216: expected a row start from 176 to 176, found 175"},
        {1, changed(24 + 4 * 49 + 8 * 48 + 4, 48), "byte 608: expected a column from 0 to 47, found 48"},
        {7, Bytes(2, 2), "byte 8: the file ends here; the header of a dense file takes 16 bytes"},
        {7, Bytes(2, -3, 2, -3), "byte 4: expected the number of columns of a dense file, found -3"},
        {7, Bytes(2, 2, 2, 2, 1.0), "byte 24: the file ends here; a matrix of 2 x 2, as its header says, takes 4 values"},
        {0, "", "byte 0: the file ends here, expected a record with the number of rows"},
        {0, firstRecord, "byte 12: the file ends here, expected the record of row 1 of 1"},
        {0, Bytes(4, 1, 5), "byte 8: expected 4, the length of the record that ends here, found 5"},
        {0, firstRecord + Bytes(900), "byte 12: expected the length of a record, found 900, which leads beyond the end of the file"},
        {0, firstRecord + Bytes(4, 0, 4), ofRow1 + "should begin with the number of its entries"},
        {0, firstRecord + Bytes(4, 3, 4), ofRow1 + "ends within its 3 entries, which take 40 bytes"},
        {0, firstRecord + Bytes(16, 1, 2, 1.0, 16), ofRow1 + "should have the diagonal first, column 1, found 2"},
        {0, firstRecord + Bytes(28, 2, 1, 2, 1.0, 2.0, 28), ofRow1 + "should have columns from 1 to 1, found 2"},
    };
    for (Case const& bad : cases) {
        SCOPED_TRACE(bad.report);
        ExpectRefused(bad.bytes, bad.format, bad.report);
    }
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
    for (int const format : kExportFormats)
        ExpectThrows<KVOSrvMtxFileWriteFailure>("Error at writing to file: /dev/full",
                                                [&] { exportable.matrix->Export("/dev/full", format, &exportable.definition); });
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
        EXPECT_EQ(full->IsSymmetric(), real.symmetric); // it stays in full storage
        EXPECT_THROW(full->Export(m_path.c_str(), 6), KVOSrvMtxNoUnsymmetric);
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
