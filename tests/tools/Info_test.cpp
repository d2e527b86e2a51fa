// kvomtx info as a diagnosis: of broken matrices, of known ones, of pairs, and as a gate of a pipeline.

#include "Tool.h"

#include <gtest/gtest.h>

namespace
{

using nlohmann::json;

constexpr char kBroken[] =
    "%%MatrixMarket matrix coordinate real general\n% a comment\n\n6 6 13\n1 1 4\n1 2 -1\n2 1 -1.5\n% here\n2 2 nan\n"
    "3 3 -2\n3 3 -1\n4 5 inf\n5 4 inf\n5 5 0\n1 2 0.25\n2 3 1\n3 2 1\n1 2 0\n";

std::string Lines(json const& found)
{
    std::string lines;
    for (json const& one : found.at("first"))
        lines += one.dump() + " ";
    return lines;
}

} // namespace

TEST(Info, TellsWhereAMatrixIsBroken)
{
    Tool const tool;
    WriteFile(tool / "a.mtx", kBroken);
    json const facts = tool.Json({"info", "a.mtx"}), found = facts.at("found");
    EXPECT_EQ(Lines(found.at("nan")), R"({"column":2,"line":9,"row":2,"value":"nan"} )");
    EXPECT_EQ(Lines(found.at("infinite")), R"({"column":5,"line":12,"row":4,"value":"inf"} {"column":4,"line":13,"row":5,"value":"inf"} )");
    EXPECT_EQ(Lines(found.at("empty_row")) + Lines(found.at("empty_column")), "6 6 ");
    EXPECT_EQ(Lines(found.at("negative_diagonal")), R"({"column":3,"line":10,"row":3,"value":-3.0} )");
    EXPECT_EQ(Lines(found.at("zero_diagonal")),
              R"({"column":4,"line":null,"row":4,"value":0.0} {"column":5,"line":14,"row":5,"value":0.0} )"
              R"({"column":6,"line":null,"row":6,"value":0.0} )");
    EXPECT_EQ(Lines(found.at("repeated")), R"({"again_line":11,"column":3,"line":10,"row":3,"value":-3.0} )"
                                           R"({"again_line":15,"column":2,"line":6,"row":1,"value":-0.75} )"
                                           R"({"again_line":18,"column":2,"line":6,"row":1,"value":-0.75} )");
    EXPECT_EQ(facts.at("asymmetry"), json::parse(R"({"largest": null, "row": 2, "column": 1, "value": -1.5, "mirror": -0.75, "line": 7,
                                                     "mirror_line": 6, "pairs": 1})"));
    EXPECT_EQ(facts.at("pieces").at("largest").dump(), R"([{"columns":3,"rows":3},{"columns":2,"rows":2},{"columns":1,"rows":1}])");
    EXPECT_EQ(facts.at("structural_rank"), 5);
    EXPECT_TRUE(facts.at("norms").is_null());

    // Entries have their lines in a triangle, an array and triplets, too, whose records may share them.
    WriteFile(tool / "half.mtx", "%%MatrixMarket matrix array real symmetric\n3 3\n1\n0\n% c\n2\n-1\n0\n3\n");
    EXPECT_EQ(Lines(tool.Json({"info", "half.mtx"}).at("found").at("negative_diagonal")), R"({"column":2,"line":7,"row":2,"value":-1.0} )");
    WriteFile(tool / "a.txt", "1 1 2 1 2\n1 2 1\n 1 2 2 -7 2 1 1\n");
    json const triplets = tool.Json({"info", "a.txt"});
    EXPECT_EQ(Lines(triplets.at("found").at("negative_diagonal")), R"({"column":2,"line":3,"row":2,"value":-7.0} )");
    WriteFile(tool / "a.rb", "title\n 3 1 1 1\nrua 2 2 2 0\n(3i2)           (2i2)           (2f4.1)\n 1 3 3\n 1 1\n 1.0 2.0\n");
    EXPECT_TRUE(tool.Json({"info", "a.rb"}).at("found").at("repeated").is_null()); // its reader sums without a word
    EXPECT_EQ(Lines(triplets.at("found").at("repeated")), R"({"again_line":3,"column":1,"line":2,"row":2,"value":2.0} )");
}

// Against SciPy's structural_rank, connected_components, reverse_cuthill_mckee and norms.
TEST(Info, AgreesWithWhatIsKnownOfMatrices)
{
    Tool const tool;
    using Known = std::tuple<char const*, int, int, int, int, double, double>;
    for (auto const& [name, rank, pieces, bandwidth, profile, one, two] :
         {Known{"bcsstk01", 48, 1, 27, 667, 3570948074.697437, 3015179089.8976846},
          {"bcsstm01", 24, 48, 0, 0, 200.0, 200.0},
          {"west0479", 479, 1, 220, 49890, 382221.51, 318951.75980514265},
          {"bcsstk11", 1473, 9, 110, 73117, 741314969.3462641, 655606315.5037231}}) {
        SCOPED_TRACE(name);
        json const facts = tool.Json({"info", Data(name) + ".mtx"});
        EXPECT_EQ(facts.at("structural_rank"), rank);
        EXPECT_EQ(facts.at("pieces").at("count"), pieces);
        EXPECT_EQ(facts.at("reordered"), (json{{"bandwidth", bandwidth}, {"profile", profile}}));
        EXPECT_DOUBLE_EQ(facts.at("norms").at("one"), one);
        EXPECT_NEAR(facts.at("norms").at("two_estimate").get<double>() / two, 1.0, 1e-3);
    }
    json const deep = tool.Json({"info", Data("bcsstk01.mtx"), "--deep"}).at("definiteness");
    EXPECT_EQ(deep.at("verdict"), "positive definite");
    EXPECT_NEAR(deep.at("smallest_singular_value").get<double>(), 3417.267562, 1.0);
}

TEST(Info, ExaminesAPair)
{
    Tool const tool;
    json const pair = tool.Json({"info", Data("bcsstk11.mtx"), Data("bcsstm12.mtx"), "--deep"});
    EXPECT_NEAR(pair.at("lowest_eigenvalue").get<double>(), 3469.3054478847303, 1e-2);
    EXPECT_NEAR(pair.at("highest_eigenvalue").get<double>() / (2.9e5 * 3469.3), 1.0, 0.03);

    WriteFile(tool / "k.mtx", "%%MatrixMarket matrix coordinate real symmetric\n5 5 5\n1 1 2\n2 1 -1\n2 2 2\n4 4 1\n5 4 0\n");
    WriteFile(tool / "m.mtx", "%%MatrixMarket matrix coordinate real symmetric\n5 5 3\n1 1 2\n2 1 -3\n2 2 2\n");
    json const broken = tool.Json({"info", "k.mtx", "m.mtx"});
    EXPECT_EQ(Lines(broken.at("found").at("empty_unknown")) + Lines(broken.at("found").at("without_mass")), "3 5 4 ");
    EXPECT_EQ(broken.at("stiffness").at("pieces").at("count"), 4); // a stored 0 connects nothing
    EXPECT_EQ(broken.at("mass").at("definiteness").at("why"), "the entry (2, 1) is too large for its diagonal entries");
    EXPECT_EQ(broken.at("spectrum_not_told"), "m.mtx is not positive semidefinite");
}

TEST(Info, FailsOnWhatAPipelineForbids)
{
    Tool const tool;
    WriteFile(tool / "a.mtx", kBroken);
    std::string const m = Data("bcsstm01.mtx");
    struct Case {
        std::vector<std::string> arguments;
        int code;
        char const* text;
    };
    for (auto const& [arguments, code, text] : {Case{{"a.mtx", "--fail-on", "nan,disconnected,asymmetric"},
                                                     1,
                                                     "a.mtx: nan: 1: (2, 2) line 9; disconnected: 3 pieces; asymmetric: 1 pair"},
                                                {{"a.mtx", "--fail-on", "zero-column"}, 0, ""},
                                                {{m, "--deep", "--fail-on", "indefinite"}, 0, ""},
                                                {{m, "--fail-on", "not-definite"}, 1, "not-definite: positive semidefinite"},
                                                {{Data("bcsstk01.mtx"), m, "--fail-on", "massless,nan"}, 1, "the pair: massless: 24: 4"},
                                                {{Data("bcsstk11.mtx"), m, "--fail-on", "misfit"}, 1, "K is 1473 x 1473 and M 48 x 48"},
                                                {{m, "--fail-on", "massless"}, 2, "is of a pair"},
                                                {{m, "--fail-on", "nan,foo"}, 2, "\"foo\" is not known; words are nan, infinite, "}}) {
        std::vector<std::string> all{"info"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        Outcome const outcome = tool(all);
        EXPECT_EQ(outcome.code, code) << text;
        EXPECT_NE(outcome.err.find(text), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out.empty(), code == 2);
    }
}
