#include "Tool.h"

#include <cmath>
#include <gtest/gtest.h>

namespace
{

std::string const kGeneral = "%%MatrixMarket matrix coordinate real general\n";

} // namespace

TEST(Files, ConvertKeepsAMatrixThroughEveryFormat)
{
    MarketFile const symmetric(Data("bcsstk01.mtx"));
    Tool const tool;
    WriteFile(tool / "a.mtx", kGeneral + "4 3 5\n1 1 0.25\n3 2 -2.5e-7\n1 1 0.5\n2 3 1e300\n4 1 0\n");
    for (std::string const name : {"k.mtx", "k.triplets", "k.txt", "k.dense", "k.chunks", "k.sim"}) {
        SCOPED_TRACE(name);
        tool.Do({"convert", Data("bcsstk01.mtx"), name});
        tool.Do({"convert", name, "back.mtx"});
        EXPECT_EQ(MarketFile(tool / "back.mtx").entries, symmetric.entries);
        EXPECT_NE(ReadFile(tool / "back.mtx").find("symmetric"), std::string::npos);
        if (name == "k.chunks")
            continue; // for symmetric ones only
        tool.Do({"convert", "a.mtx", name});
        tool.Do({"convert", name, "back.mtx"});
        std::map<std::pair<int, int>, double> expected{{{0, 0}, 0.75}, {{2, 1}, -2.5e-7}, {{1, 2}, 1e300}, {{3, 0}, 0.0}};
        if (name == "k.dense")
            expected.erase({3, 0}); // the format knows no stored zeros
        MarketFile const back(tool / "back.mtx");
        EXPECT_EQ(back.entries, expected);
        EXPECT_EQ(back.rows, 4);
    }
    EXPECT_EQ(tool.Files().at("k.chunks").substr(12, 4), std::string(4, '\0')); // half storage
    for (auto const& [input, arrays] : {std::pair{Data("bcsstk01.mtx"), 4}, {std::string("a.mtx"), 3}}) {
        tool.Do({"convert", input, "sums.sim", "--checksums"});
        EXPECT_EQ(tool.Json({"db", "check", "sums.sim"}).at("values"), arrays);
    }
}

// The library's own exports would drop the diagonal and a triangle of half storage in formats 4, 5 and 7.
TEST(Files, ConvertWritesAllOfAHalfStoredMatrix)
{
    Tool const tool;
    WriteFile(tool / "k.mtx", "%%MatrixMarket matrix coordinate integer symmetric\n2 2 2\n1 1 4\n2 1 7\n");
    WriteFile(tool / "nodes", "11 1\n12 3\n");
    tool.Do({"convert", "k.mtx", "k.chunks"});
    tool.Do({"convert", "k.chunks", "k.csv"});
    tool.Do({"convert", "k.chunks", "k.nodes", "--nodes", "nodes"});
    tool.Do({"convert", "k.chunks", "d", "--to", "7"});
    tool.Do({"convert", "d", "back.mtx", "--from", "7"});

    EXPECT_EQ(ReadFile(tool / "k.csv"), "0,0, 4.000000000000000e+00\n0,1, 7.000000000000000e+00\n"
                                        "1,0, 7.000000000000000e+00\n1,1, 0.000000000000000e+00\n");
    EXPECT_EQ(ReadFile(tool / "k.nodes"), "11,1,11,1,4.000000000000000e+00\n11,1,12,3,7.000000000000000e+00\n"
                                          "12,3,11,1,7.000000000000000e+00\n12,3,12,3,0.000000000000000e+00\n");
    EXPECT_EQ(MarketFile(tool / "back.mtx").entries, (std::map<std::pair<int, int>, double>{{{0, 0}, 4}, {{0, 1}, 7}, {{1, 0}, 7}}));
}

// Half storage holds a pair as often as its file does; its values are summed.
TEST(Files, RepeatedPairsAreSummed)
{
    using Int = std::int32_t;
    Tool const tool;
    WriteFile(tool / "k.records", Bytes(Int{4}, Int{2}, Int{4}) + Bytes(Int{40}, Int{3}, Int{1}, Int{2}, Int{2}, 10.0, 1.0, 3.0, Int{40}) +
                                      Bytes(Int{16}, Int{1}, Int{2}, 5.0, Int{16}));
    for (char const* name : {"k.sim", "k.mtx", "k.chunks", "k.txt"}) {
        SCOPED_TRACE(name);
        tool.Do({"convert", "k.records", name});
        auto const facts = tool.Json({"info", name});
        EXPECT_EQ(facts.at("entries"), 4);
        EXPECT_EQ(facts.at("smallest_value"), 4.0);
    }
}

// Every bit of every value, also through the standard streams, whose content tells the format.
TEST(Files, TripletsAndStreamsGiveBackEveryBit)
{
    Tool tool;
    std::string const text =
        kGeneral + "2 5 7\n1 1 0.1\n1 2 -0\n1 3 5e-324\n1 4 inf\n1 5 -nan\n2 1 1.7976931348623157e+308\n2 5 2.0000000000000004\n";
    WriteFile(tool / "a.mtx", text);
    tool.inChild = [] { dup2(open("a.mtx", O_RDONLY), STDIN_FILENO); };
    WriteFile(tool / "piped", tool.Do({"convert", "-", "-", "--to", "txt"}));
    EXPECT_EQ(tool.Do({"convert", "piped", "-", "--to", "mtx"}), text);
    EXPECT_EQ(tool.Json({"info", "-"}).at("entries"), 7);
    tool.Do({"convert", "-", "a.sim"});
    EXPECT_NE(tool.Do({"db", "ls", "a.sim"}).find("from standard input (SHA-256 "), std::string::npos);
}

// The size of a text is that of its largest indices.
TEST(Files, TripletsKeepEmptyLastRowsAndColumns)
{
    Tool const tool;
    for (char const* entries : {"4 3 0\n", "4 3 1\n2 2 7\n", "4 3 1\n4 1 7\n", "4 3 1\n1 3 7\n"}) {
        SCOPED_TRACE(entries);
        WriteFile(tool / "a.mtx", kGeneral + entries);
        tool.Do({"convert", "a.mtx", "a.txt"});
        auto const facts = tool.Json({"info", "a.txt"});
        EXPECT_EQ(facts.at("rows"), 4);
        EXPECT_EQ(facts.at("columns"), 3);
    }
    WriteFile(tool / "a.mtx", kGeneral + "0 3 0\n");
    EXPECT_EQ(tool({"convert", "a.mtx", "a.txt", "--force"}).code, 1);
}

TEST(Files, ConvertReplacesWhatALinkPointsTo)
{
    Tool const tool;
    std::filesystem::create_symlink("target.mtx", tool / "link.mtx");
    for (bool const isThere : {false, true}) {
        SCOPED_TRACE(isThere);
        tool.Do({"convert", Data("bcsstk01.mtx"), "link.mtx"});
        EXPECT_TRUE(std::filesystem::is_symlink(tool / "link.mtx"));
        EXPECT_EQ(MarketFile(tool / "target.mtx").rows, 48);
        WriteFile(tool / "target.mtx", "old");
    }
}

TEST(Files, InfoTellsWhatAMatrixIsLike)
{
    Tool const tool;
    WriteFile(tool / "a.mtx", kGeneral + "5 4 5\n1 3 -2\n4 1 8\n4 4 0.5\n2 1 0\n3 3 nan\n");
    auto const expected = nlohmann::json::parse(R"({"matrix": "a.mtx", "format": "Matrix Market", "rows": 5, "columns": 4,
        "entries": 5, "stored_zeros": 1, "not_finite": 1, "symmetry": "not square", "lower_bandwidth": 3, "upper_bandwidth": 2,
        "smallest_value": -2.0, "largest_value": 8.0, "smallest_nonzero_size": 0.5, "trivial_rows": 1, "zero_rows": 1,
        "trivial_columns": 1})");
    auto facts = tool.Json({"info", "a.mtx"});
    facts.merge_patch(expected);
    EXPECT_EQ(facts, tool.Json({"info", "a.mtx"})); // whatever else it tells

    for (auto const& [values, symmetry] : {std::pair{"1\n2\n2\n1\n", "symmetric"},
                                           {"1\n2\n2.0000000000000004\n1\n", "symmetric up to rounding"},
                                           {"1\n2\n0\n1\n", "not symmetric"},
                                           {"1\n0\n-2\n1\n", "not symmetric"},
                                           {"inf\n-inf\n-inf\n1\n", "symmetric"},
                                           {"inf\n2\n3\n1\n", "not symmetric"}}) {
        WriteFile(tool / "s.mtx", std::string("%%MatrixMarket matrix array real general\n2 2\n") + values);
        EXPECT_EQ(tool.Json({"info", "s.mtx"}).at("symmetry"), symmetry) << values;
    }

    // The product is dense; two tiles and a bit.
    WriteFile(tool / "big.mtx", kGeneral + "2050 2050 4\n1 1 3\n3 2049 5\n2049 3 5\n4 1 -2\n");
    WriteFile(tool / "one.mtx", kGeneral + "2050 2050 3\n1 1 1\n3 3 1\n2049 2049 1\n");
    tool.Do({"sparse-times-dense", "big.mtx", "one.mtx", "-o", "product.sim"});
    nlohmann::json dense = tool.Json({"info", "big.mtx"}), stored = tool.Json({"info", "product.sim"});
    EXPECT_EQ(stored.at("symmetry"), "not symmetric");
    EXPECT_EQ(stored.at("stored_zeros"), 2050 * 2050 - 4);
    EXPECT_EQ(stored.at("format"), "simulation database, dense matrix");
    for (char const* fact : {"rows", "columns", "entries", "lower_bandwidth", "upper_bandwidth", "largest_value", "smallest_nonzero_size",
                             "trivial_rows", "trivial_columns", "not_finite"})
        EXPECT_EQ(stored.at(fact), dense.at(fact)) << fact;
}

TEST(Files, DatabaseIsListedAndExported)
{
    Tool const tool;
    tool.Do({"modes", Data("bcsstk01.mtx"), Data("bcsstm01.mtx"), "-n", "3", "-o", "modes.sim"});
    auto const list = tool.Json({"db", "ls", "modes.sim"}).at("matrices");
    std::string listed;
    for (auto const& one : list)
        for (char const* what : {"id", "content", "sizes", "storage", "chunks"})
            listed += one.at(what).dump() + " ";
    EXPECT_EQ(listed, R"("0" "stiffness" [48,48] "sparse, symmetric" [] "1" "mass" [48,48] "sparse, symmetric" [] )"
                      R"("2" "modes" [48,3] "dense" [48,3] "3" "eigenvalues" [3] "dense" [] )");
    EXPECT_EQ(list[3].at("title").get<std::string>() + list[3].at("unit").get<std::string>(), "eigenvalues(rad/s)^2");
    EXPECT_EQ(list[0].at("description"), "from bcsstk01.mtx (SHA-256 19ea89f59969ab4436cd6e8b6e948465ac9349348ebf64723ee4361e0352b7c8)");
    tool.Do({"convert", Data("illc1033.mtx"), "a.sim"});
    EXPECT_NE(tool.Do({"db", "ls", "a.sim"}).find("illc1033 (matrix)"), std::string::npos);

    tool.Do({"db", "export", "modes.sim", "0", "k.mtx"});
    tool.Do({"db", "export", "modes.sim", "2", "modes.mtx"});
    tool.Do({"db", "export", "modes.sim", "2", "modes.dense"});
    tool.Do({"convert", "modes.dense", "again.mtx"});
    EXPECT_EQ(MarketFile(tool / "k.mtx").entries, MarketFile(Data("bcsstk01.mtx")).entries);
    MarketFile const again(tool / "again.mtx");
    for (auto const& [place, value] : MarketFile(tool / "modes.mtx").entries)
        EXPECT_EQ(again.At(place.first, place.second), std::fabs(value) > 1e-16 ? value : 0.0);
    Outcome const several = tool({"info", "modes.sim"});
    EXPECT_EQ(several.code, 3);
    EXPECT_NE(several.err.find("name one as modes.sim:ID"), std::string::npos);
}

// Also what h5repack has written anew, where nothing is in its place any more; exit code 3 and the matrix's number for a damaged one.
TEST(Files, DatabaseIsChecked)
{
    Tool const tool;
    tool.Do({"modes", Data("bcsstk01.mtx"), Data("bcsstm01.mtx"), "-n", "3", "-o", "modes.sim"});
    ASSERT_EQ(std::system(("h5repack '" + tool / "modes.sim" + "' '" + tool / "repacked.sim" + "'").c_str()), 0);
    for (char const* const name : {"modes.sim", "repacked.sim"}) {
        EXPECT_EQ(tool.Do({"db", "check", name}), std::string(name) + ": sound, matrices: 4\n");
        EXPECT_TRUE(tool.Json({"db", "check", name}).at("sound"));
        tool.Do({"db", "export", name, "2", std::string(name) + ".mtx"});
    }
    EXPECT_EQ(ReadFile(tool / "modes.sim.mtx"), ReadFile(tool / "repacked.sim.mtx"));

    std::string damaged = ReadFile(tool / "modes.sim");
    char const leafOfOneEntry[] = {'T', 'R', 'E', 'E', 1, 0, 1, 0};
    std::size_t node = 0;
    do // that of matrix 2, the only index with two dimensions
        node = damaged.find(std::string_view(leafOfOneEntry, sizeof leafOfOneEntry), node + 1);
    while (node != std::string::npos && !(damaged[node + 72] == 3 || damaged[node + 80] == 48));
    ASSERT_NE(node, std::string::npos);
    damaged[node + 56] ^= 1; // the chunk's address
    WriteFile(tool / "damaged.sim", damaged);
    Outcome const outcome = tool({"db", "check", "damaged.sim"});
    EXPECT_EQ(outcome.code, 3);
    EXPECT_NE(outcome.out.find("2: Cannot open a drawer of the database damaged.sim: the file is damaged"), std::string::npos)
        << outcome.out;
    EXPECT_EQ(outcome.err, "kvomtx: damaged.sim: is damaged, see above; make it again\n");
}
