// kvomtx info.

#include "Commands.h"

#include "DiagnosisJson.h"
#include "DiagnosisText.h"
#include "Examine.h"
#include "MatrixName.h"
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
    "  kvomtx info model-modes.sim:1 --json\n\n"
    "Rows, columns and lines of a text file are numbered from 1. Entries are those of the whole matrix, both triangles of a\n"
    "symmetric one. An empty row has no entry; one that holds zeros only is told apart from it. Of a dense matrix of a database\n"
    "the values that are not 0 count as entries. Of what is found the first are shown, and the first 1000 with --json.\n"
    "Reordered is by reverse Cuthill-McKee. The structural rank is the greatest rank of a matrix with its values in these places.\n"
    "The 2-norm is estimated, from below. --deep factors a symmetric matrix, which tells its definiteness and condition.";

struct Options {
    std::string file;
    std::string format;
    std::string memory;
    std::string scratch;
    bool isDeep = false;
    bool json = false;
};

void RunInfo(Options const& options)
{
    std::optional<ScratchFolder> scratch;
    if (options.isDeep)
        scratch.emplace(options.scratch);
    MemoryForFiles const memory(options.memory, scratch ? scratch->Path() : options.scratch);
    MatrixName const name = ParseMatrixName(options.file, options.format, true);
    ExaminedMatrix const examined = Examine(name, {StatedBytes(options.memory), options.isDeep});
    (options.json ? PrintDiagnosisJson : PrintDiagnosis)(examined.diagnosis);
}

} // namespace

void AddInfoCommand(CLI::App& app, Command& chosen)
{
    auto const options = std::make_shared<Options>();
    CLI::App& info = AddCommand(app, "info", "What a matrix is like, and what is wrong with it", kFooter);
    AddRequired(info, "FILE", options->file, "Matrix file or FILE.sim:ID");
    AddOption(info, "--format", options->format, "Format of FILE, when its ending does not tell it (see convert --help)");
    AddFlag(info, "--deep", options->isDeep, "Also what takes a factorization: definiteness, condition");
    AddFlag(info, "--json", options->json, "Print one JSON object");
    AddMemory(info, options->memory, "reading and the diagnosis");
    AddOption(info, "--scratch", options->scratch, "Folder for scratch files (the working directory)", RequireName);
    SetWork(info, chosen, [options] { RunInfo(*options); });
}
