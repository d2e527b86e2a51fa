// kvomtx info.

#include "Commands.h"

#include "DiagnosisJson.h"
#include "DiagnosisText.h"
#include "Examine.h"
#include "FailOn.h"
#include "MatrixName.h"
#include "PairDiagnosis.h"
#include "PairText.h"
#include "ScratchFolder.h"
#include "StatedBytes.h"

#include "KVOSrvSparseMatrix.h"

#include <memory>
#include <optional>
#include <string>

namespace
{

constexpr char kFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx info data/bcsstk11.mtx\n"
    "  kvomtx info data/bcsstk01.mtx data/bcsstm01.mtx --deep\n"
    "  kvomtx info model-modes.sim:1 --json --fail-on nan,empty-row,asymmetric\n\n"
    "Rows, columns and lines of a text file are numbered from 1. Entries are those of the whole matrix, both triangles of a\n"
    "symmetric one. An empty row has no entry; one that holds zeros only is told apart from it. Of a dense matrix of a database\n"
    "the values that are not 0 count as entries. Of what is found the first are shown, and the first 1000 with --json.\n"
    "Reordered is by reverse Cuthill-McKee. The structural rank is the greatest rank of a matrix with its values in these places.\n"
    "The 2-norm is estimated, from below. --deep factors a symmetric matrix, which tells its definiteness and condition.\n"
    "Of a pair the eigenvalues are those of K x = lambda M x, the frequency is sqrt(lambda) / (2 pi).\n\n"
    "--fail-on prints the diagnosis, too, then one line with what is wrong on the error stream, and ends with exit code 1. Words:\n";

struct Options {
    std::string file;
    std::string mass;
    std::string failOn;
    std::string format;
    std::string memory;
    std::string scratch;
    bool imaginary = false;
    bool isDeep = false;
    bool json = false;
};

void RunInfo(Options const& options)
{
    bool const isPair = !options.mass.empty();
    if (!isPair)
        RequireWordsOfOne(options.failOn);
    std::optional<ScratchFolder> scratch;
    if (options.isDeep)
        scratch.emplace(options.scratch);
    MemoryForFiles const memory(options.memory, scratch ? scratch->Path() : options.scratch);
    MatrixName name = ParseMatrixName(options.file, options.format, true);
    if (!isPair)
        name.part = options.imaginary ? KVOSrvMatrixPart::kImaginary : KVOSrvMatrixPart::kReal;
    ExamineLimits const limits{StatedBytes(options.memory), options.isDeep, options.isDeep};
    if (!isPair) {
        MatrixDiagnosis const facts = Examine(name, limits).diagnosis;
        (options.json ? PrintDiagnosisJson : PrintDiagnosis)(facts);
        RequireNone(options.failOn, facts);
    } else {
        PairDiagnosis const pair = ExaminePair(name, ParseMatrixName(options.mass, options.format, true), limits);
        (options.json ? PrintPairJson : PrintPair)(pair);
        RequireNone(options.failOn, pair);
    }
}

} // namespace

void AddInfoCommand(CLI::App& app, Command& chosen)
{
    auto const options = std::make_shared<Options>();
    CLI::App& info =
        AddCommand(app, "info", "What a matrix or a pair of them is like, and what is wrong with it", kFooter + DescribeFailWords());
    AddRequired(info, "FILE", options->file, "Matrix file or FILE.sim:ID");
    AddOption(info, "M", options->mass, "Mass matrix: FILE is the stiffness then, and the two are examined as a pair", RequireName);
    AddOption(info, "--fail-on", options->failOn, "Fail where one of these words, separated by commas, holds; see below", RequireFailWords);
    AddOption(info, "--format", options->format, "Format of FILE, when nothing in it or its ending tells it (see convert --help)");
    AddFlag(info, "--imaginary", options->imaginary, "Of a complex matrix: the imaginary parts instead of the real ones");
    AddFlag(info, "--deep", options->isDeep, "Also what takes a factorization: definiteness, condition");
    AddFlag(info, "--json", options->json, "Print one JSON object");
    AddMemory(info, options->memory, "reading and the diagnosis");
    AddOption(info, "--scratch", options->scratch, "Folder for scratch files (the working directory)", RequireName);
    SetWork(info, chosen, [options] { RunInfo(*options); });
}
