// Matrix Market files.

#include "SparseOracle.h"

namespace
{

std::string const kCoordinate = "%%MatrixMarket matrix coordinate real general\n";
std::string const kSymmetric = "%%MatrixMarket matrix coordinate real symmetric\n";
std::string const kArray = "%%MatrixMarket matrix array real general\n";

class KVOSrvSparseMarketFiles : public SparseFilesTest
{
protected:
    Content Read(std::string const& text)
    {
        WriteFile(m_path, text);
        return ContentOf(*KVOSrvSparseMatrix::ReadMatrixMarket(m_path.c_str()));
    }

    std::string Write(KVOSrvSparseMatrix const& matrix)
    {
        matrix.ExportMatrixMarket(m_path.c_str());
        return ReadFile(m_path);
    }
};

Content Of(int rows, int columns, std::vector<Entry> const& entries)
{
    return {rows, columns, static_cast<int>(entries.size()), entries};
}

TEST_F(KVOSrvSparseMarketFiles, ReadsEveryKind)
{
    double const infinite = std::numeric_limits<double>::infinity();
    std::pair<std::string, Content> const cases[] = {
        {kCoordinate + "0 0 0", Of(0, 0, {})},
        {kCoordinate + "3 2 2\n3 1 -.5\n1 2 +1E3", Of(3, 2, {MakeEntry(0, 1, 1000), MakeEntry(2, 0, -0.5)})},
        {kCoordinate + "% 1\n\n 2 2 3 \r\n%\n2 2 1\n \t\n1 1 4\r\n2 2 0.25\n%", Of(2, 2, {MakeEntry(0, 0, 4), MakeEntry(1, 1, 1.25)})},
        {kCoordinate + "%" + std::string(700000, '-') + "\n1 1 1\n1 1 7\n", Of(1, 1, {MakeEntry(0, 0, 7)})},
        {kCoordinate + "1 3 3\n1 1 1e999\n1 2 -1e-999\n1 3 -inf\n",
         Of(1, 3, {MakeEntry(0, 0, infinite), MakeEntry(0, 1, -0.0), MakeEntry(0, 2, -infinite)})},
        {"%%MatrixMarket Matrix COORDINATE Integer General\n2 2 1\n1 2 -3\n", Of(2, 2, {MakeEntry(0, 1, -3)})},
        {kSymmetric + "2 2 2\n2 1 7\n2 2 5\n", Of(2, 2, {MakeEntry(0, 1, 7), MakeEntry(1, 0, 7), MakeEntry(1, 1, 5)})},
        {kArray + "2 2\n1\n0\n-0\n4\n", Of(2, 2, {MakeEntry(0, 0, 1), MakeEntry(1, 1, 4)})},
        {"%%MatrixMarket matrix array double symmetric\n2 2\n1\n2\n0\n",
         Of(2, 2, {MakeEntry(0, 0, 1), MakeEntry(0, 1, 2), MakeEntry(1, 0, 2)})},
        {kCoordinate + "1 3 3\n1 1 1D0\n1 2 +1.5d-3\n1 3 -2D+999\n",
         Of(1, 3, {MakeEntry(0, 0, 1), MakeEntry(0, 1, 1.5e-3), MakeEntry(0, 2, -infinite)})},
        {"%%MatrixMarket matrix coordinate pattern symmetric\n2 2 2\n2 1\n2 2\n",
         Of(2, 2, {MakeEntry(0, 1, 1), MakeEntry(1, 0, 1), MakeEntry(1, 1, 1)})},
        {"%%MatrixMarket matrix coordinate integer skew-symmetric\n2 2 1\n2 1 7\n", Of(2, 2, {MakeEntry(0, 1, -7), MakeEntry(1, 0, 7)})},
        {"%%MatrixMarket matrix array real skew-symmetric\n3 3\n1\n0\n-2\n",
         Of(3, 3, {MakeEntry(0, 1, -1), MakeEntry(1, 0, 1), MakeEntry(1, 2, 2), MakeEntry(2, 1, -2)})},
    };
    for (auto const& [text, expected] : cases) {
        SCOPED_TRACE(text.substr(0, 100));
        EXPECT_EQ(Read(text), expected);
    }
}

TEST_F(KVOSrvSparseMarketFiles, SaysInWhatLineAFileIsMalformed)
{
    std::pair<std::string, std::string> const cases[] = {
        {"", "line 1: expected \"%%MatrixMarket\", found the end of the file"},
        {"1 1 5\n", "line 1: expected \"%%MatrixMarket\", found \"1\""},
        {"%%MatrixMarket vector", "line 1: expected \"matrix\", found \"vector\""},
        {"%%MatrixMarket matrix array pattern general\n", "line 1: an array holds values"},
        {"%%MatrixMarket matrix coordinate pattern skew-symmetric\n", "line 1: a pattern has no signs"},
        {"%%MatrixMarket matrix coordinate complex general\n", "line 1: a complex matrix cannot be held"},
        {"%%MatrixMarket matrix coordinate real hermitian\n", "line 1: only a complex matrix is"},
        {"%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 1\n2 2 0\n", "line 3: a skew-symmetric file holds what is below"},
        {kCoordinate + "2 2 1\n1 1 1.5d\n", "line 3: expected a value, found \"1.5d\""},
        {"%%MatrixMarket matrix coordinate real general 1\n", "line 1: expected the end of the line, found \"1\""},
        {kCoordinate, "line 1: the file ends here, expected the line with the sizes"},
        {kCoordinate + "% comment\n2 2 -1\n", "line 3: expected the number of entries from 0 to 2147483647, found \"-1\""},
        {kCoordinate + "2 2147483647 1\n", "line 2: expected the number of columns from 0 to 2147483646, found \"2147483647\""},
        {kCoordinate + "2 2 2\n1 1 5\n", "line 3: the file ends here, after 1 of 2 entries"},
        {kCoordinate + "2 2 1\n\n3 1 5\n", "line 4: expected a row from 1 to 2, found \"3\""},
        {kCoordinate + "2 2 1\n1 0 5\n", "line 3: expected a column from 1 to 2, found \"0\""},
        {kCoordinate + "2 2 1\n1.0 1 5\n", "line 3: expected a row from 1 to 2, found \"1.0\""},
        {kCoordinate + "2 2 1\n1 1\n", "line 3: expected a value, found the end of the line"},
        {kCoordinate + "2 2 1\n1 1 5,0\n", "line 3: expected a value, found \"5,0\""},
        {kCoordinate + "2 2 1\n1 1 5 6\n", "line 3: expected the end of the line, found \"6\""},
        {kCoordinate + "2 2 1\n1 1 5\n2 2 6\n", "line 4: expected the end of the file after 1 entries"},
        {kSymmetric + "2 2 1\n1 2 5\n", "line 3: a symmetric file holds the lower triangle only"},
        {kSymmetric + "2 3 1\n1 1 5\n", "line 2: a symmetric matrix has as many columns as rows"},
        {kArray + "2 2\n1\n2\n3\n", "line 5: the file ends here, after 3 of 4 entries"},
        {"%%MatrixMarket matrix array integer general\n1 1\n1.5\n", "line 3: expected a whole number, found \"1.5\""},
    };
    for (auto const& [text, report] : cases) {
        SCOPED_TRACE(text);
        ExpectMalformed([&, &file = text] { Read(file); }, report);
    }
}

// As "symmetric" exactly when the matrix equals its transpose, an entry that is not stored being 0.
TEST_F(KVOSrvSparseMarketFiles, WritesTheLowerTriangleOfWhatEqualsItsTranspose)
{
    double const infinite = std::numeric_limits<double>::infinity();
    std::pair<double, double> const pairs[] = {{2, 2},     {0, 0},        {0, -0.0}, {infinite, infinite}, {kNotANumber, kNotANumber},
                                               {1e-20, 0}, {1, 1 + 1e-15}};
    for (auto const& [above, below] : pairs)
        for (unsigned const column : {1U, 4U}) {
            SCOPED_TRACE(std::to_string(above) + ", " + std::to_string(below));
            SparseOracle oracle{5, 5, {{{2, 2}, 3.5}, {{0, column}, above}, {{3, 1}, 0.0}}}; // the last is as good as none
            if (below != 0)
                oracle.Add(column, 0, below);
            std::string const text = Write(*oracle.Matrix());
            bool const symmetric = above == below;
            EXPECT_TRUE(text.starts_with(symmetric ? kSymmetric : kCoordinate));
            EXPECT_EQ(text.find("\n1 "), symmetric ? std::string::npos : text.find("\n1 " + std::to_string(column + 1)));
        }
}

TEST_F(KVOSrvSparseMarketFiles, WritesEveryStorageToTheBit)
{
    auto const wide = SparseOracle{2, 3, {{{0, 0}, -1e300}, {{1, 2}, 0.1}}}.Matrix();
    EXPECT_EQ(Write(*wide), kCoordinate + "2 3 2\n1 1 -1e+300\n2 3 0.1\n");
    wide->BeginAssembly();
    EXPECT_EQ(Write(*wide), kCoordinate + "2 3 0\n");
    wide->AddData(0, 0, 1.0);
    EXPECT_THROW(Write(*wide), KVOSrvMtxNotAssembled);

    Half half = Half::Random(40, 300, 1);
    half.rows[0].emplace_back(0, 2.0); // files may repeat a pair
    half.rows[0].emplace_back(3, 2.0);
    auto const matrix = HalfStored(half);
    std::string const text = Write(*matrix);
    EXPECT_TRUE(text.starts_with(kSymmetric));
    auto const again = KVOSrvSparseMatrix::ReadMatrixMarket(m_path.c_str());
    EXPECT_EQ(Export(*again, 3), Export(*matrix->InFullStorage(), 3));
    EXPECT_EQ(Write(*again), text);
}

} // namespace
