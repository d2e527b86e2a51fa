#include "Tool.h"

#include <gmock/gmock.h>
#include <sys/file.h>

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

// HDF5 loses memory of its own when it meets a damaged file or cannot write one (see Hdf5Guard.cpp): LeakSanitizer would end the runs.
void TolerateLeaks()
{
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
}

// A failure is one line that begins with the program's name, and leaves the folder as it was.
void ExpectFailure(Tool const& tool, std::vector<std::string> const& arguments, int code, std::string const& text, rlim_t fileLimit = 0)
{
    std::string line;
    for (std::string const& argument : arguments)
        line += argument + " ";
    SCOPED_TRACE(line);
    auto const before = tool.Files();

    Outcome const outcome = tool(arguments, fileLimit);

    EXPECT_EQ(outcome.code, code);
    EXPECT_THAT(outcome.err, AllOf(StartsWith("kvomtx: "), HasSubstr(text)));
    EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
    EXPECT_TRUE(tool.Files() == before) << "files were changed or left";
}

std::string const kGeneral = "%%MatrixMarket matrix coordinate real general\n";

} // namespace

TEST(BadInput, MalformedFilesAreReportedByPlaceAndOthersRecognised)
{
    Tool const tool;
    WriteFile(tool / "bad.mtx", kGeneral + "2 2 1\n\n3 1 5\n");
    WriteFile(tool / "bad.txt", "1 1 2.5\n1 x 3\n");
    WriteFile(tool / "bad.dense", Bytes(2, 2));
    ExpectFailure(tool, {"info", "bad.mtx"}, 3, "bad.mtx: line 4: expected a row from 1 to 2, found \"3\"");
    ExpectFailure(tool, {"info", "bad.txt"}, 3, "bad.txt: line 2: expected a column number (whole, from 1 to 2147483647), found \"x\"");
    ExpectFailure(tool, {"info", "bad.dense"}, 3, "bad.dense: byte 8: the file ends here; the header of a dense file");

    tool.Do({"convert", Data("bcsstk01.mtx"), "k.sim"});
    ExpectFailure(tool, {"info", Data("bcsstk01.mtx"), "--format", "6"}, 3, "this is a Matrix Market file");
    ExpectFailure(tool, {"info", "k.sim", "--format", "mtx"}, 3, "this is a database");
    ExpectFailure(tool, {"info", Data("bcsstk01.mtx") + ":0"}, 3, "it is no database");
    ExpectFailure(tool, {"info", "k.sim:7"}, 3, "holds no matrix 7");
    ExpectFailure(tool, {"info", "missing\x1b.mtx"}, 3, "missing?.mtx: cannot be read: No such file or directory");
    ExpectFailure(tool, {"info", ".", "--format", "mtx"}, 3, "is not a regular file");
    ExpectFailure(tool, {"info", "missing.sim:0"}, 3, "; check the name");
    WriteFile(tool / "open elsewhere.sim", ReadFile(tool / "k.sim").substr(0, 3000)); // the advice follows the fault, not the name
    ExpectFailure(tool, {"info", "open elsewhere.sim:0"}, 3, "cut short: 3000 of ");
    ExpectFailure(tool, {"info", "open elsewhere.sim:0"}, 3, "; make it again");
    int const other = open((tool / "k.sim").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    ExpectFailure(tool, {"info", "k.sim:0"}, 3, "; wait for the other program");
    close(other);
    std::filesystem::create_directory(tool / "k.sim.journal");
    ExpectFailure(tool, {"info", "k.sim:0"}, 3, "k.sim.journal: ");
    WriteFile(tool / "matrix.unknown", "?");
    WriteFile(tool / "c.mtx", "%%MatrixMarket matrix coordinate complex general\n1 1 1\n1 1 2 3\n");
    ExpectFailure(tool, {"info", "matrix.unknown"}, 2, "neither its ending nor its content tells its format");
    ExpectFailure(tool, {"info", "missing"}, 3, "missing: cannot be read: No such file");
    ExpectFailure(tool, {"convert", "c.mtx", "c.txt"}, 3, "c.mtx: line 1: a complex matrix cannot be held");
    EXPECT_EQ(tool.Json({"info", "c.mtx", "--imaginary"}).at("largest_value"), 3.0);
    ExpectFailure(tool, {"convert", "c.mtx", "-"}, 2, "the standard output has no ending that tells the format");
    ExpectFailure(tool, {"make-brick", "1", "1", "1", "-", "m.mtx", "--format", "mtx"}, 2, "do not go to the standard output");
}

// Wherever a database is damaged: it is the input that is at fault, also where a product finds it in the middle.
TEST(BadInput, DamagedDatabasesAreInputsThatCannotBeRead)
{
    TolerateLeaks();
    Tool const tool;
    tool.Do({"modes", Data("bcsstk01.mtx"), Data("bcsstm01.mtx"), "-n", "3", "-o", "sound.sim"});
    std::string const sound = ReadFile(tool / "sound.sim");
    int refused = 0;
    for (std::size_t byte = 0; byte + 512 < sound.size(); byte += 2048) {
        WriteFile(tool / "bad.sim", std::string(sound).replace(byte, 512, std::string(512, '\1')));
        for (std::vector<std::string> const& arguments :
             {std::vector<std::string>{"db", "ls", "bad.sim"}, {"gemm", "bad.sim:2", "bad.sim:2", "-t", "-o", "product.sim", "--force"}})
            if (tool(arguments).code != 0) {
                SCOPED_TRACE(byte);
                ExpectFailure(tool, arguments, 3, "bad.sim");
                ++refused;
            }
    }
    EXPECT_GT(refused, 10);
}

TEST(BadInput, PairsThatAreNoneAreRefused)
{
    std::string const k = Data("bcsstk01.mtx");
    Tool const tool;
    WriteFile(tool / "nan.mtx", kGeneral + "2 2 2\n1 1 1\n2 2 nan\n");
    WriteFile(tool / "empty.mtx", kGeneral + "0 0 0\n");
    WriteFile(tool / "nearly.mtx", kGeneral + "2 2 4\n1 1 1\n2 2 1\n1 2 0.5\n2 1 0.50000001\n");
    WriteFile(tool / "one-sided.mtx", kGeneral + "3 3 4\n1 1 1\n2 2 1\n3 3 1\n1 3 0.5\n");
    WriteFile(tool / "unit.mtx", kGeneral + "2 2 2\n1 1 1\n2 2 1\n");
    ExpectFailure(tool, {"modes", Data("west0479.mtx"), Data("west0479.mtx")}, 1,
                  "west0479.mtx is not symmetric: the entry (456, 455) is -316220");
    ExpectFailure(tool, {"modes", k, Data("illc1033.mtx")}, 1, "is no square matrix (1033 x 320)");
    ExpectFailure(tool, {"modes", k, Data("bcsstm02r.mtx")}, 1, "is of order 66 and the stiffness of order 48");
    ExpectFailure(tool, {"modes", "nan.mtx", "nan.mtx", "-n", "1"}, 1, "nan.mtx holds nan at (2, 2)");
    ExpectFailure(tool, {"modes", "nearly.mtx", "unit.mtx", "-n", "1"}, 1, "the entry (2, 1) is 0.5");
    ExpectFailure(tool, {"modes", "one-sided.mtx", "unit.mtx", "-n", "1"}, 1, "the entry (1, 3) is 0.5, the entry (3, 1) is 0");
    ExpectFailure(tool, {"modes", "empty.mtx", "empty.mtx"}, 1, "has no rows");
    ExpectFailure(tool, {"modes", k, k, "--reference", Data("README.md")}, 3, "line 3: expected \"lambda frequency\"");
}

TEST(BadInput, CoordinatesThatAreNoneAreReportedByLine)
{
    std::string const k = Data("bcsstk01.mtx"), m = Data("bcsstm01.mtx");
    Tool const tool;
    std::vector<std::pair<std::string, std::string>> const cases{
        {"% nodes\n0 0 1\n0 0\n", "line 3: expected \"x y z\", found \"0 0\""},
        {"0 0 1 2\n0 0 1 7\n", "line 2: expected \"x y z dof\", the last from 1 to 6, found \"0 0 1 7\""},
        {"0 0 1 1.5\n", "line 1: expected \"x y z dof\""},
        {"0 0 inf\n", "line 1: expected \"x y z\" or \"x y z dof\", found \"0 0 inf\""},
        {"0 0 1e999\n", "line 1: expected"},
        {"0 0 1x\n", "line 1: expected"},
        {"0 0 1 1 1\n", "line 1: expected"},
        {"% nothing\n", "line 1: expected \"x y z\" or \"x y z dof\", found the end of the file"},
        {"0 0 0\n1 0 0\n", "holds 2 nodes, the model has 48 unknowns"},
        {"0 0 0 1\n1 0 0 2\n", "holds 2 unknowns, the model has 48 unknowns"}};
    for (auto const& [content, text] : cases) {
        WriteFile(tool / "nodes.txt", content);
        ExpectFailure(tool, {"modes", k, m, "--coordinates", "nodes.txt"}, 3, "nodes.txt: " + text);
    }
    ExpectFailure(tool, {"modes", k, m, "--coordinates", "missing.txt"}, 3, "missing.txt: cannot be read");
    std::string far;
    for (int node = 0; node < 16; ++node)
        far += "0 1e200 " + std::to_string(node) + "\n";
    WriteFile(tool / "nodes.txt", far);
    ExpectFailure(tool, {"modes", k, m, "--coordinates", "nodes.txt"}, 1, "the mass of direction rot x is beyond the range of numbers");
    ExpectFailure(tool, {"modes", k, m, "--masses", "5"}, 1, "bcsstk01.mtx: has 48 unknowns, no multiple of 5");
    ExpectFailure(tool, {"modes", k, m, "--masses", "3", "--coordinates", "nodes.txt"}, 2, "choose one of them");
    ExpectFailure(tool, {"modes", k, m, "--masses", "3", "--about", "0", "0", "0"}, 2, "--about is a point of --coordinates");
    ExpectFailure(tool, {"modes", k, m, "--coordinates", "nodes.txt", "--about", "0", "nan", "0"}, 2, "--about needs three finite numbers");
    ExpectFailure(tool, {"modes", k, m, "--coordinates", "nodes.txt", "-o", "nodes.txt"}, 2, "is the input nodes.txt as well");
}

TEST(BadInput, WrongCommandLinesAreRefused)
{
    std::string const k = Data("bcsstk01.mtx");
    Tool const tool;
    tool.Do({"convert", k, "k.sim"});
    std::filesystem::create_directory_symlink(".", tool / "link");
    ExpectFailure(tool, {"mods", k, k}, 2, "\"mods\" is no command");
    ExpectFailure(tool, {"modes", k}, 2, "M is required");
    ExpectFailure(tool, {"modes", k, k, "-n", "0"}, 2, "0 is less than 1");
    ExpectFailure(tool, {"modes", "k.sim:0", "k.sim:0", "-o", "k.sim"}, 2, "is the input k.sim as well");
    ExpectFailure(tool, {"convert", k, "k.records"}, 2, "can be read only");
    ExpectFailure(tool, {"convert", k, "out", "--to", "1"}, 2, "can be read only");
    ExpectFailure(tool, {"convert", k, "out", "--to", "8"}, 2, "\"8\" is no format");
    ExpectFailure(tool, {"convert", "k.csv", "k.mtx"}, 2, "cannot be read");
    ExpectFailure(tool, {"convert", k, "k.nodes"}, 2, "--nodes");
    WriteFile(tool / "nodes", "11 1\n12 3 4\n");
    ExpectFailure(tool, {"convert", k, "k.nodes", "--nodes", "nodes"}, 3, "nodes: line 2: expected \"node degree-of-freedom\"");
    ExpectFailure(tool, {"convert", k, "k.csv", "--checksums"}, 2, "has no place for --checksums");
    ExpectFailure(tool, {"convert", k, "k.sim:1"}, 2, "an output is a whole file");
    ExpectFailure(tool, {"make-brick", "1", "1", "1", "k.mtx", "m.mtx", "--poisson", "0.5"}, 2, "--poisson");
    ExpectFailure(tool, {"make-brick", "2000000000", "2000000000", "2000000000", "k.mtx", "m.mtx"}, 2, "too large");
    for (char const* mass : {"k.mtx", "./k.mtx", "link/k.mtx"})
        ExpectFailure(tool, {"make-brick", "1", "1", "1", "k.mtx", mass}, 2, "named twice");
    ExpectFailure(tool, {"make-brick", "1", "1", "1", "k.mtx", "m.mtx", "--size", "inf", "1", "1"}, 2, "inf");
    ExpectFailure(tool, {"make-brick", "1", "1", "1", "k.mtx", "m.mtx", "--size", "1e-200", "1", "1"}, 2, "units");
    ExpectFailure(tool, {"modes", k, k, "-o", "a.sim", "--picture", "./a.sim"}, 2, "named twice");
    ExpectFailure(tool, {"modes", k, k, "-o", "a.sim", "--picture", "a.pdf"}, 2, "the ending of a picture is .png or .svg");
    ExpectFailure(tool, {"spy", "absent.mtx", "-o", "a"}, 2, "the ending of a picture is .png or .svg");
    ExpectFailure(tool, {"spy", k, "-o", "a.png", "--rows", "0:5"}, 2, "0:5 is no range");
    ExpectFailure(tool, {"spy", k, "-o", "a.png", "--columns", "5:49"}, 2, "give a range within 1:48");
    ExpectFailure(tool, {"modes", k, k, "-o", ""}, 2, "empty");
    ExpectFailure(tool, {"make-brick", "1", "2", "abc", "k.mtx", "m.mtx"}, 2, "NZ: abc is not a number");
    ExpectFailure(tool, {"modes", k, k, "-n", "2.5"}, 2, "--count: 2.5 is not a whole number");
    ExpectFailure(tool, {"modes", k, "--froce"}, 2, "--froce is no option of modes, the nearest is --force");
    ExpectFailure(tool, {"--jsno"}, 2, "--jsno is no option of kvomtx");
    ExpectFailure(tool, {"--json", "info", k}, 2, "--json goes behind the command, info");
    ExpectFailure(tool, {"db", "list", "k.sim"}, 2, "\"list\" is no command of db, the nearest is ls");
    Outcome const alone = tool({});
    EXPECT_EQ(alone.code, 2);
    EXPECT_THAT(alone.err, AllOf(HasSubstr("\n  make-brick "), HasSubstr("kvomtx: no command is given")));
    ExpectFailure(tool, {"db", "export", "k.sim", "x", "x.mtx"}, 2, "\"x\" is no number of a matrix");
    ExpectFailure(tool, {"convert", Data("west0479.mtx"), "w.chunks"}, 1, "holds symmetric matrices only; the input is not symmetric");
}

TEST(BadInput, OutputsThatCannotBeMadeLeaveWhatWasThere)
{
    TolerateLeaks();
    std::string const k = Data("bcsstk11.mtx"), m = Data("bcsstm12.mtx");
    Tool const tool;
    WriteFile(tool / "small.mtx", kGeneral + "2 2 2\n1 1 1\n2 2 1\n");
    std::filesystem::create_directory(tool / "folder");
    ExpectFailure(tool, {"modes", k, m, "-o", "missing/modes.sim"}, 4, "make its folder first");
    ExpectFailure(tool, {"modes", k, m, "-o", "folder"}, 4, "Is a directory");
    ExpectFailure(tool, {"modes", k, m, "-o", "/dev/full"}, 4, "is not a regular file");
    ExpectFailure(tool, {"modes", k, m, "-o", "modes.sim", "--picture", "missing/p.png"}, 4, "missing/p.png");
    WriteFile(tool / "older.svg", "a night's work");
    WriteFile(tool / "torn.mtx", "no matrix"); // is not even read
    std::filesystem::create_symlink("older.svg", tool / "torn-modes.sim");
    for (std::vector<std::string> const& arguments : {std::vector<std::string>{"modes", "torn.mtx", m},
                                                      {"modes", "torn.mtx", m, "-o", "new.sim", "--picture", "older.svg"},
                                                      {"make-brick", "1", "1", "1", "new.mtx", "m.mtx", "--coordinates", "older.svg"},
                                                      {"convert", "torn.mtx", "older.svg", "--to", "mtx"},
                                                      {"spy", "torn.mtx", "-o", "older.svg"},
                                                      {"gemm", "torn.mtx", "torn.mtx", "-o", "older.svg"},
                                                      {"sparse-times-dense", "torn.mtx", m, "-o", "older.svg"}})
        ExpectFailure(tool, arguments, 4, "is there already; give another name, or --force, which replaces it");
    ExpectFailure(tool, {"modes", k, m, "--scratch", "missing"}, 4, "--scratch");

    // A file that may not grow stands for a full disk.
    for (char const* name : {"out.mtx", "out.txt", "out.csv", "out.chunks", "out.dense", "out.sim"}) {
        WriteFile(tool / name, "good");
        ExpectFailure(tool, {"convert", k, name}, 4, "", 2048);
    }
    for (rlim_t const limit : {5000, 10000, 15000, 20000}) // while a small database is completed
        ExpectFailure(tool, {"convert", "small.mtx", "out.sim"}, 4, "out.sim", limit);
    ExpectFailure(tool, {"modes", k, m, "-o", "out.sim"}, 4, "", 400000); // in the middle of the computation
    ExpectFailure(tool, {"make-brick", "5", "5", "5", "out.mtx", "m.mtx"}, 4, "out.mtx", 50000);
    for (char const* picture : {"out.png", "out.svg"})
        ExpectFailure(tool, {"spy", k, "-o", picture}, 4, picture, 2048);
    ExpectFailure(tool, {"sparse-times-dense", k, m, "-o", "out.sim"}, 4, "", 20000);
}

// A link under the name where an output is written must not lead there, nor may the journal of what it replaces stand beside it.
TEST(BadInput, OutputsGoWhereTheyShouldAlone)
{
    Tool tool;
    WriteFile(tool / "victim", "precious");
    tool.inChild = [] {
        std::string const number = std::to_string(getpid());
        for (std::string const name : {"out.sim", "out.mtx", "out.chunks"})
            std::filesystem::create_symlink("victim", name + ".part" + number);
    };
    for (std::string const name : {"out.sim", "out.mtx", "out.chunks"}) {
        WriteFile(tool / (name + ".journal"), "of what stood here before");
        tool.Do({"convert", Data("bcsstk01.mtx"), name});
        tool.Do({"info", name});
        EXPECT_EQ(ReadFile(tool / "victim"), "precious");
        EXPECT_EQ(std::filesystem::exists(tool / (name + ".journal")), name != "out.sim");
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // these take more address space than any limit leaves
// The provider of BLAS and the start of the program among them.
TEST(BadInput, LittleMemoryEndsTheProgramInOrder)
{
    Tool tool;
    tool.Do({"make-brick", "6", "3", "3", "k.mtx", "m.mtx"});
    auto const files = tool.Files();
    int failed = 0, done = 0;
    rlim_t first = 60; // Below it the loader, or a library that it starts, ends the process in its own way, before the program begins.
    for (rlim_t mebibytes = first; mebibytes <= 480; mebibytes += mebibytes < first + 20 ? 1 : 20) {
        SCOPED_TRACE(mebibytes);
        tool.inChild = [mebibytes] {
            setenv("OPENBLAS_NUM_THREADS", "2", 1);
            rlimit const limit{mebibytes << 20, mebibytes << 20};
            setrlimit(RLIMIT_AS, &limit);
            alarm(60); // who hangs, is ended by a signal
        };
        Outcome const help = tool({"--help"}), modes = tool({"modes", "k.mtx", "m.mtx", "-n", "2", "-o", "modes.sim"});
        if (help.out.empty() && help.err.find("kvomtx: ") != 0)
            first = mebibytes + 3; // a little more than just enough
        if (mebibytes >= first)
            for (Outcome const& outcome : {help, modes}) {
                EXPECT_TRUE(outcome.code == 0 || outcome.code == 1) << outcome.code << ": " << outcome.err;
                EXPECT_THAT(outcome.err, HasSubstr(outcome.code == 1 ? "kvomtx: " : ""));
                failed += outcome.code == 1;
                done += outcome.code == 0;
            }
        std::filesystem::remove(tool / "modes.sim");
        EXPECT_TRUE(tool.Files() == files) << "files were changed or left";
    }
    EXPECT_LT(first, 150U) << "what shows the help takes";
    EXPECT_GT(failed, 10);
    EXPECT_GT(done, 10);
}
#endif

TEST(BadInput, ResultsThatNobodyGetsAreAFailure)
{
    std::string const k = Data("bcsstk11.mtx"), m = Data("bcsstm12.mtx");
    Tool const tool;
    int pipe[2];
    ASSERT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
    close(pipe[0]);
    int const full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    std::vector<std::string> const longest{"modes", k, m, "-n", "100", "--json", "-o", "modes.sim"}; // more than a buffer holds
    for (int const output : {pipe[1], full})
        for (std::vector<std::string> const& arguments : {std::vector<std::string>{"--help"}, {"--version"}, {"info", k}, longest}) {
            SCOPED_TRACE(arguments[0]);
            Outcome const outcome = tool.Wait(tool.Start(arguments, 0, output));
            EXPECT_EQ(outcome.code, 4);
            EXPECT_THAT(outcome.err, StartsWith("kvomtx: the standard output cannot be written"));
            std::filesystem::remove(tool / "modes.sim");
            EXPECT_TRUE(tool.Files().empty()) << "scratch files are left";
        }
    close(full);
    close(pipe[1]);
}
