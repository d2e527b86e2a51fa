#include "Tool.h"

#include <cmath>
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
    int const rows = transpose ? a.columns : a.rows;
    for (int j = 0; j < b.columns; ++j)
        for (int i = 0; i < rows; ++i)
            c[{i, j}] = 0.0;
    for (auto const& [place, value] : a.entries) {
        auto const [row, inner] = transpose ? std::pair(place.second, place.first) : place;
        for (int j = 0; j < b.columns; ++j)
            if (auto const entry = b.entries.find({inner, j}); entry != b.entries.end())
                c[{row, j}] += value * entry->second;
    }
    return c;
}

} // namespace

TEST(Products, GemmMultipliesStoredMatrices)
{
    for (bool const transpose : {false, true}) {
        SCOPED_TRACE(transpose);
        Tool const tool;
        WriteArray(tool / "a.mtx", 9, transpose ? 5 : 7, 3);
        WriteArray(tool / "b.mtx", transpose ? 9 : 7, 4, 11);
        std::vector<std::string> arguments = {"gemm", "a.mtx", "b.mtx", "-o", "c.sim"};
        if (transpose)
            arguments.push_back("-t");
        nlohmann::json const rate = tool.Json(arguments);
        tool.Do({"db", "export", "c.sim", "0", "c.mtx"});

        EXPECT_EQ(MarketFile(tool / "c.mtx").entries, Product(MarketFile(tool / "a.mtx"), MarketFile(tool / "b.mtx"), transpose));
        EXPECT_EQ(rate.at("rows"), transpose ? 5 : 9);
        double const operations = 2.0 * 9 * (transpose ? 5 * 4 : 7 * 4);
        EXPECT_NEAR(rate.at("gigaflops").get<double>() * rate.at("seconds").get<double>(), operations * 1e-9, operations * 1e-15);
    }
}

TEST(Products, SparseTimesDenseInBothDirectionsAndStorages)
{
    Tool const tool;
    WriteFile(tool / "a.mtx", "%%MatrixMarket matrix coordinate real general\n4 3 4\n1 1 2\n1 3 -3\n3 2 5\n4 1 7\n");
    WriteFile(tool / "s.mtx", "%%MatrixMarket matrix coordinate real symmetric\n4 4 4\n1 1 2\n3 1 -3\n3 3 5\n4 2 7\n");
    tool.Do({"convert", "s.mtx", "s.chunks"});
    WriteArray(tool / "x3.mtx", 3, 6, 5);
    WriteArray(tool / "x4.mtx", 4, 6, 8);
    struct Case {
        char const* sparse;
        char const* market;
        char const* dense;
        bool transpose;
    } const cases[] = {{"a.mtx", "a.mtx", "x3.mtx", false},
                       {"a.mtx", "a.mtx", "x4.mtx", true},
                       {"s.chunks", "s.mtx", "x4.mtx", false},
                       {"s.chunks", "s.mtx", "x4.mtx", true}};
    for (Case const& product : cases) {
        SCOPED_TRACE(std::string(product.sparse) + (product.transpose ? " transposed" : ""));
        std::vector<std::string> arguments = {"sparse-times-dense", product.sparse, product.dense, "-o", "y.sim", "--repeat", "2"};
        if (product.transpose)
            arguments.push_back("--transpose");
        tool.Do(arguments);
        tool.Do({"db", "export", "y.sim", "0", "y.mtx"});
        EXPECT_EQ(MarketFile(tool / "y.mtx").entries,
                  Product(MarketFile(tool / product.market), MarketFile(tool / product.dense), product.transpose));
    }
    Outcome const mismatched = tool({"sparse-times-dense", "a.mtx", "x4.mtx", "-o", "z.sim"});
    EXPECT_EQ(mismatched.code, 1);
    EXPECT_NE(mismatched.err.find("4 x 3 cannot be multiplied by 4 x 6"), std::string::npos);
}
