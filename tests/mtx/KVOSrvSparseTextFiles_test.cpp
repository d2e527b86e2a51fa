#include "KVOFsmSystemDofDefinition.h"
#include "SparseOracle.h"

#include <clocale>
#include <cstdio>

namespace
{

using KVOSrvSparseTextFiles = SparseFilesTest;

std::string Print(char const* format, auto... arguments)
{
    char line[512];
    int const length = std::snprintf(line, sizeof line, format, arguments...);
    return {line, static_cast<std::size_t>(length)};
}

std::vector<std::string> Split(std::string const& text, char separator)
{
    std::istringstream stream(text);
    std::vector<std::string> parts;
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

// Repeated entries are summed, and the largest indices are the sizes.
TEST_F(KVOSrvSparseTextFiles, AcceptsAnyLayoutOfWellFormedNumbers)
{
    Content const expected{4, 12, 2, {MakeEntry(0, 11, -0.5), MakeEntry(3, 0, 1e300)}};
    std::pair<char const*, Content> const cases[] = {
        {"1 1 2.0\n1 1 3.0\n3 2 1.0\n", {3, 2, 2, {MakeEntry(0, 0, 5.0), MakeEntry(2, 1, 1.0)}}},
        {"", {0, 0, 0, {}}},
        {"4 1 1e300 1 12 -.5", expected},
        {"\r\n\t1\v12\f-5.e-1\r\n\r\n4 1 +1E+300\r\n  ", expected},
        {"+1\n+012\n-0.5\n0004\n1\n1000e297", expected}};
    for (auto const& [text, content] : cases)
        for (int const format : {2, 3}) {
            SCOPED_TRACE(text);
            KVOSrvSparseMatrix matrix(9, 9);
            ImportWithoutMemory(matrix, m_path, text, format);
            EXPECT_EQ(ContentOf(matrix), content);
        }
}

TEST_F(KVOSrvSparseTextFiles, ReadsValuesAsScanfDoes)
{
    std::vector<std::string> tokens =
        Split("inf -INF Infinity nan -NaN +nan 0x1.8p-3 -0X.1P+4 0x10 1e400 -1e400 1e-400 4e-324 2e-324 3e-324 "
              "2.2250738585072011e-308 1e-5000 1e999999 -0 +0. 0e99999 1.7976931348623159e308 9007199254740993",
              ' ');
    tokens.push_back(std::string(400, '1') + "." + std::string(400, '7') + "e-380");
    tokens.push_back("0." + std::string(5000, '0') + "12345e5000");
    std::mt19937_64 random(5);
    for (int k = 0; k < 20000; ++k)
        tokens.push_back(Print(k % 2 != 0 ? "%.17g" : "%.9e", std::bit_cast<double>(random())));

    std::string text;
    std::vector<std::uint64_t> expected;
    for (std::string const& token : tokens) {
        std::string written = token;
        if (expected.size() % 3 != 0) // as Fortran has it in double precision
            std::ranges::replace(written, 'e', expected.size() % 3 == 1 ? 'D' : 'd');
        text += "1 " + std::to_string(expected.size() + 1) + " " + written + "\n";
        double value = 0;
        ASSERT_EQ(std::sscanf(token.c_str(), "%lf", &value), 1) << token;
        expected.push_back(std::bit_cast<std::uint64_t>(value));
    }
    KVOSrvSparseMatrix matrix(0, 0);
    matrix.AddData(0, 0, 1.0);
    Import(matrix, text, 2); // which replaces everything

    matrix.EndAssembly(); // it is assembled
    Content const content = ContentOf(matrix);
    ASSERT_EQ(content.nonzeros, static_cast<int>(expected.size()));
    for (std::size_t k = 0; k < expected.size(); ++k)
        EXPECT_EQ(std::get<2>(content.entries[k]), expected[k]) << tokens[k];
    matrix.BeginAssembly();
    matrix.EndAssembly();
    EXPECT_EQ(matrix.NumberOfNonzeros(), 0); // and no entry is pending
}

TEST_F(KVOSrvSparseTextFiles, RefusesMalformedText)
{
    std::vector<std::string> texts =
        Split("1|1 1|1 1 1.0\n2|1 1 1.0\n2 2 \n|x|1 b 2.0|1 1 abc|1 1 1.0x|1 1 1.0 rubbish|1 1 1.0\n# end|%%MatrixMarket|1 1 1 1|"
              "0 1 1.0|1 0 1.0|-1 1 1.0|1 -2 1.0|-0 1 1.0|2147483648 1 1.0|1 4294967297 1.0|99999999999999999999999 1 1.0|2.5 1 1.0|"
              "1 1.5|1 1-2.0|1+1 1.0|1 1.0 1.0|1e0 1 1.0|0x1 1 1.0|++1 1 1.0|+ 1 1.0|1,1,1.0|1 1 1,5|1 1 1.5,|1 1 1e|1 1 1e+|1 1 +|"
              "1 1 -|1 1 .|1 1 +-1|1 1 --1|1 1 0x|1 1 0x1p|1 1 infx|1 1 infin|1 1 nan(12)|1 1 1d|1 1 1d5d|1 1 0x1d5x|1 1 1.0f|\xEF\xBB\xBF "
              "1 1 1.0|\xA0",
              '|');
    for (char const* const zero : {"1 1 1.0_", "_", "1 1_ 1.0"}) {
        texts.emplace_back(zero);
        std::ranges::replace(texts.back(), '_', '\0');
    }
    for (std::string const& text : texts) {
        SCOPED_TRACE(testing::PrintToString(text));
        ExpectRefused(text, 2);
        ExpectRefused(text, 3);
    }
}

// Tokens and blanks in random places relative to the reader's windows; single ones far longer than a window.
TEST_F(KVOSrvSparseTextFiles, ReadsAcrossItsWindows)
{
    std::mt19937 random(11);
    std::uniform_int_distribution<> entry(0, 999);
    for (unsigned const longest : {1u, 9u, 40000u, 900000u}) {
        SparseOracle expected{0, 0, {}};
        std::string text;
        auto const addToken = [&](std::string const& token) {
            text += std::string(random() % 4 == 0 ? random() % longest : 0, '0') + token;
            text.append(1 + (random() % 4 == 0 ? random() % longest : 0), " \n\t\r"[random() % 4]);
        };
        while (text.size() < 3000000) {
            int const row = entry(random), column = entry(random), value = entry(random);
            for (std::string const& token : {std::to_string(row + 1), std::to_string(column + 1), std::to_string(value) + ".25"})
                addToken(token);
            expected.Add(static_cast<unsigned>(row), static_cast<unsigned>(column), value + 0.25);
        }
        KVOSrvSparseMatrix matrix(0, 0);
        Import(matrix, text, 3);

        EXPECT_TRUE(ContentOf(matrix).entries == expected.ExpectedContent().entries) << longest;
        ExpectRefused(text + "1 ", 3);
        ExpectRefused(text + std::string(700000, '1'), 3);
    }
}

// Bits of every kind of double: finite ones of all sizes, denormal ones, zeros, infinities, NaN of both signs.
TEST_F(KVOSrvSparseTextFiles, WritesEveryNumberAsPrintfDoes)
{
    double const max = std::numeric_limits<double>::max(), nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> values{0.0, -0.0, 1.0, 9.9999999999999995, 0.5, 1e23, 5e-324, max, INFINITY, -INFINITY, nan, -nan};
    std::mt19937_64 random(23);
    while (values.size() < 30000)
        values.push_back(std::bit_cast<double>(random()));
    KVOSrvSparseMatrix matrix(7, 200000);
    std::string triplets, commas, places;
    unsigned row = 0, column = 0;
    for (double const value : values) {
        matrix.AddData(row, column, value);
        triplets += Print("%ld %ld %18.15le\n", row + 1L, column + 1L, value);
        commas += Print("%d,%d, %18.15e\n", row, column, value);
        places += Print("%d,%d,%d,0,%18.15e\n", row + 1, -static_cast<int>(row), column, value);
        column += 1 + column / 100;
        if (column > 150000) {
            column = 0;
            row += 12345;
        }
    }
    matrix.EndAssembly();
    std::vector<int> nodes(row + 1), dofs(row + 1);
    std::iota(nodes.begin(), nodes.end(), 1);
    std::iota(dofs.rbegin(), dofs.rend(), -static_cast<int>(row));
    KVOFsmSystemDofDefinition const definition(static_cast<int>(row) + 1, nodes.data(), dofs.data());
    EXPECT_TRUE(Export(matrix, 3) == triplets);
    EXPECT_TRUE(Export(matrix, 5) == commas);
    EXPECT_TRUE(Export(matrix, 4, &definition) == places);
}

TEST_F(KVOSrvSparseTextFiles, WritesHalfStorageAsEachFormatWants)
{
    Half half(2);
    half.diagonal = {4, 5};
    half.rows[0] = {{1, 7.0}};
    auto const matrix = HalfStored(half);
    int const nodes[] = {101, 102}, dofs[] = {3, -6};
    KVOFsmSystemDofDefinition const definition(2, nodes, dofs);

    EXPECT_EQ(Export(*matrix, 3), "1 1 4.000000000000000e+00\n2 2 5.000000000000000e+00\n"
                                  "1 2 7.000000000000000e+00\n2 1 7.000000000000000e+00\n");
    EXPECT_EQ(Export(*matrix, 5), "0,0, 4.000000000000000e+00\n0,1, 7.000000000000000e+00\n1,1, 5.000000000000000e+00\n");
    EXPECT_EQ(Export(*matrix, 4, &definition), "101,3,102,-6,7.000000000000000e+00\n");
}

TEST_F(KVOSrvSparseTextFiles, NamesNodeAndDofOfColumnsOnlyInASquareMatrix)
{
    int const nodes[] = {10, 20, 30}, dofs[] = {1, 2, 3};
    KVOFsmSystemDofDefinition const definition(3, nodes, dofs), tooSmall(2, nodes, dofs);
    for (int const columns : {3, 4})
        EXPECT_EQ(Export(*SparseOracle{3, columns, {{{2, 1}, -1.5}}}.Matrix(), 4, &definition),
                  columns == 3 ? "30,3,20,2,-1.500000000000000e+00\n" : "30,3,1,0,-1.500000000000000e+00\n");

    // Its last unknown takes part in no entry, and then as a column.
    std::string const written = Export(*SparseOracle{3, 3, {{{0, 1}, 2.0}}}.Matrix(), 4, &tooSmall);
    EXPECT_EQ(written, "10,1,20,2,2.000000000000000e+00\n");
    auto const last = SparseOracle{3, 3, {{{0, 2}, 2.0}}}.Matrix();
    for (KVOFsmSystemDofDefinition const* const missing : {static_cast<KVOFsmSystemDofDefinition const*>(nullptr), &tooSmall})
        EXPECT_THROW(last->Export(m_path.c_str(), 4, missing), KVOSrvMtxUnsupportedExpFmt);
    EXPECT_EQ(ReadFile(m_path), written); // refused before the file is touched
}

struct CommaDecimals : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(KVOSrvSparseTextFiles, DoesNotDependOnTheLocale)
{
    std::locale const before = std::locale::global(std::locale(std::locale(), new CommaDecimals));
    std::setlocale(LC_ALL, "de_DE.UTF-8"); // where it is installed
    KVOSrvSparseMatrix matrix(0, 0);
    Import(matrix, "1234567 1 1.5\n1234567 2 0x1.8p0\n", 3);
    std::string const text = Export(matrix, 3);
    EXPECT_THROW(Import(matrix, "1 1 1,5", 3), KVOSrvMtxUnsupportedImpFmt);
    std::locale::global(before);
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(text, "1234567 1 1.500000000000000e+00\n1234567 2 1.500000000000000e+00\n");
}

} // namespace
