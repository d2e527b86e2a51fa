#include "Tool.h"

#include <gtest/gtest.h>

namespace
{

void WriteArray(std::string const& path, int rows, int columns, int seed)
{
    std::string text = "%%MatrixMarket matrix array real general\n" + std::to_string(rows) + " " + std::to_string(columns) + "\n";
    for (int k = 0; k < rows * columns; ++k)
        text += std::to_string((k * 37 + seed) % 101 - 50) + "\n"; // whole numbers: products are exact
    WriteFile(path, text);
}

std::map<std::pair<int, int>, double> Product(MarketFile const& a, MarketFile const& b, bool transpose)
{
    std::map<std::pair<int, int>, double> c;
    for (auto const& [place, value] : a.entries) {
        auto const [row, inner] = transpose ? std::pair(place.second, place.first) : place;
        for (int j = 0; j < b.columns; ++j)
            c[{row, j}] += value * b.At(inner, j);
    }
    std::erase_if(c, [](auto const& entry) { return entry.second == 0.0; }); // arrays are read without their zeros
    return c;
}

} // namespace

TEST(Products, OfDenseAndSparseMatricesInBothDirectionsAndStorages)
{
    Tool const tool;
    WriteFile(tool / "a.mtx", "%%MatrixMarket matrix coordinate real general\n4 3 4\n1 1 2\n1 3 -3\n3 2 5\n4 1 7\n");
    WriteFile(tool / "s.mtx", "%%MatrixMarket matrix coordinate real symmetric\n4 4 4\n1 1 2\n3 1 -3\n3 3 5\n4 2 7\n");
    tool.Do({"convert", "s.mtx", "s.chunks"});
    for (int const rows : {3, 4, 7, 9})
        WriteArray(tool / std::string("x").append(std::to_string(rows)).append(".mtx"), rows, rows == 9 ? 7 : 6, rows);
    struct Case {
        char const *command, *left, *market, *right;
        bool transpose;
        double operations; // 0: not looked at
    } const cases[] = {
        {"gemm", "x9.mtx", "x9.mtx", "x7.mtx", false, 2.0 * 9 * 7 * 6},  {"gemm", "x4.mtx", "x4.mtx", "x4.mtx", true, 2.0 * 6 * 4 * 6},
        {"sparse-times-dense", "a.mtx", "a.mtx", "x3.mtx", false, 0},    {"sparse-times-dense", "a.mtx", "a.mtx", "x4.mtx", true, 0},
        {"sparse-times-dense", "s.chunks", "s.mtx", "x4.mtx", false, 0}, {"sparse-times-dense", "s.chunks", "s.mtx", "x4.mtx", true, 0}};
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.command) + " " + c.left + (c.transpose ? " transposed" : ""));
        std::vector<std::string> arguments = {c.command, c.left, c.right, "-o", "y.sim", "--repeat", "2", "--checksums"};
        if (c.transpose)
            arguments.push_back("--transpose");
        nlohmann::json const rate = tool.Json(arguments);
        tool.Do({"db", "export", "y.sim", "0", "y.mtx"});
        MarketFile const y(tool / "y.mtx");
        EXPECT_EQ(y.entries, Product(MarketFile(tool / c.market), MarketFile(tool / c.right), c.transpose));
        EXPECT_EQ(rate.at("rows"), y.rows);
        EXPECT_EQ(tool.Json({"db", "check", "y.sim"}).at("values"), 1);
        if (c.operations > 0) {
            double const operations = rate.at("gigaflops").get<double>() * rate.at("seconds").get<double>() * 1e9;
            EXPECT_NEAR(operations, c.operations, c.operations * 1e-6);
        }
    }
    WriteArray(tool / "large.mtx", 120, 90, 5);
    for (std::string const memory : {"20K", "10M"}) {
        tool.Do({"gemm", "large.mtx", "large.mtx", "-t", "-o", "y.sim", "--memory", memory});
        tool.Do({"db", "export", "y.sim", "0", "y.mtx"});
        EXPECT_EQ(MarketFile(tool / "y.mtx").entries, Product(MarketFile(tool / "large.mtx"), MarketFile(tool / "large.mtx"), true));
    }
    Outcome const refused = tool({"gemm", "large.mtx", "large.mtx", "-t", "-o", "z.sim", "--memory", "1K"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_NE(refused.err.find("the memory limit of 1000 bytes is too small"), std::string::npos) << refused.err;
    EXPECT_EQ(tool({"gemm", "x4.mtx", "x4.mtx", "-o", "z.sim", "--memory", "0"}).code, 2);
    tool.Do({"convert", "large.mtx", "large.txt", "--to", "3"});
    tool.Do({"convert", "large.txt", "again.mtx", "--from", "3", "--memory", "400K"});
    tool.Do({"convert", "large.txt", "plain.mtx", "--from", "3"});
    EXPECT_EQ(ReadFile(tool / "again.mtx"), ReadFile(tool / "plain.mtx"));
    Outcome const tooSmall = tool({"info", "large.txt", "--format", "3", "--memory", "1K"});
    EXPECT_NE(tooSmall.err.find("at least 196608 bytes are needed"), std::string::npos) << tooSmall.err;
    Outcome const mismatched = tool({"sparse-times-dense", "a.mtx", "x4.mtx", "-o", "z.sim"});
    EXPECT_EQ(mismatched.code, 1);
    EXPECT_NE(mismatched.err.find("4 x 3 cannot be multiplied by 4 x 6"), std::string::npos);
}

TEST(Products, AndFilesDoNotDependOnTheThreads)
{
    Tool const tool;
    tool.Do({"make-brick", "10", "10", "10", "k.mtx", "m.mtx"});
    WriteArray(tool / "x.mtx", 3630, 9, 1);
    std::vector<std::string> found;
    for (std::string const threads : {"1", "3"}) {
        tool.Do({"--threads", threads, "convert", "k.mtx", "k.txt"});
        tool.Do({"convert", "k.txt", "back.mtx", "--threads", threads});
        tool.Do({"sparse-times-dense", "k.txt", "x.mtx", "-t", "-o", "y.sim", "--threads", threads});
        tool.Do({"db", "export", "y.sim", "0", "y.mtx"});
        found.push_back(ReadFile(tool / "k.txt") + ReadFile(tool / "back.mtx") + ReadFile(tool / "y.mtx"));
    }
    EXPECT_EQ(found[0], found[1]);
    EXPECT_EQ(tool({"info", "k.mtx", "--threads", "0"}).code, 2);
}
