#include "KVOFsmSystemDofDefinition.h"
#include "SparseOracle.h"

#include <sys/stat.h>

namespace
{

constexpr int kImportFormats[] = {0, 1, 2, 3, 6, 7};
constexpr int kExportFormats[] = {3, 4, 5, 6, 7};

class KVOSrvSparseFiles : public SparseFilesTest
{
protected:
    // Half-stored, which every format can write, with a definition for its rows.
    std::unique_ptr<KVOSrvSparseMatrix> const m_exportable = HalfStored(Half::Random(100, 4000, 2));
    KVOFsmSystemDofDefinition const m_dofs{100, std::vector<int>(100).data(), std::vector<int>(100).data()};
};

TEST_F(KVOSrvSparseFiles, ReportsAnUnknownFormatWithItsPlace)
{
    KVOSrvSparseMatrix matrix(2, 2);
    matrix.AddData(1, 1, 3.0);
    for (int const format : {4, 5, 8, -1})
        EXPECT_EQ(ReportOf<KVOSrvMtxUnsupportedImpFmt>([&] { matrix.Import("/no/such/file", format); }),
                  "KVOSrvSparseImExPorter: Unsupported import format.\nFile mtx/impl/KVOSrvSparseImExPorter, line 69");
    matrix.EndAssembly(); // nothing happens: the matrix was marked assembled
    EXPECT_EQ(matrix.NumberOfNonzeros(), 0);
    for (int const format : {0, 1, 2, 8, -1})
        EXPECT_EQ(ReportOf<KVOSrvMtxUnsupportedExpFmt>([&] { matrix.Export(m_path.c_str(), format); }),
                  "KVOSrvSparseImExPorter: Unsupported export format.\nFile mtx/impl/KVOSrvSparseImExPorter, line 154");
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

TEST_F(KVOSrvSparseFiles, SaysWhereAFileIsMalformed)
{
    Half const half = Half::Random(48, 176, 1);
    std::string const chunks = half.File(), text = "1 1 2.5\n";
    auto const changed = [&](std::size_t byte, int number) { return std::string(chunks).replace(byte, 4, Bytes(number)); };
    std::string const firstRecord = Bytes(4, 1, 4), ofRow1 = "byte 12: the record of row 1 ";
    std::tuple<int, std::string, std::string> const cases[] = {
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
    for (auto const& [format, bytes, report] : cases) {
        SCOPED_TRACE(report);
        ExpectRefused(bytes, format, report);
    }
}

TEST_F(KVOSrvSparseFiles, ReportsAPathThatCannotBeOpened)
{
    std::string const fifo = m_folder / "fifo", missing = m_folder / "missing/file", folder = m_folder / ".";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Content const before = ContentOf(*m_exportable);
    for (char const* const path : {fifo.c_str(), missing.c_str(), folder.c_str(), "", static_cast<char const*>(nullptr), "/dev/zero"}) {
        std::string const name = path != nullptr ? path : "", message = "KVOSrvSparseImExPorter: Failed to open file " + name + ".";
        for (int const format : kImportFormats)
            ExpectThrows<KVOSrvMtxOpenFileException>(message, [&] { m_exportable->Import(path, format); });
        ExpectThrows<KVOSrvMtxOpenFileException>(message, [&] { KVOSrvSparseMatrix::ReadMatrixMarket(path); });
        if (name == "/dev/zero")
            continue;
        for (int const format : kExportFormats)
            ExpectThrows<KVOSrvMtxOpenFileException>(message, [&] { m_exportable->Export(path, format, &m_dofs); });
        ExpectThrows<KVOSrvMtxOpenFileException>(message, [&] { m_exportable->ExportMatrixMarket(path); });
    }
    EXPECT_EQ(ContentOf(*m_exportable), before);
}

TEST_F(KVOSrvSparseFiles, ReportsAWriteThatFails)
{
    std::string const message = "Error at writing to file: /dev/full";
    for (int const format : kExportFormats)
        ExpectThrows<KVOSrvMtxFileWriteFailure>(message, [&] { m_exportable->Export("/dev/full", format, &m_dofs); });
    ExpectThrows<KVOSrvMtxFileWriteFailure>(message, [&] { m_exportable->ExportMatrixMarket("/dev/full"); });
}

} // namespace
