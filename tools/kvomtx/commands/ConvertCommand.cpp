// kvomtx convert.

#include "Commands.h"

#include "Errors.h"
#include "MatrixReader.h"
#include "MatrixWriter.h"
#include "OutputFile.h"
#include "ScratchFolder.h"
#include "StandardStreams.h"
#include "StatedBytes.h"

#include "KVOFsmSystemDofDefinition.h"
#include "KVOSrvSparseMatrix.h"

#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace
{

constexpr char kFooter[] = "\nEXAMPLE\n"
                           "  kvomtx convert k.mtx k.chunks         Matrix Market to a chunked file, in half storage\n"
                           "  kvomtx convert model.sim:0 k.mtx      a matrix of a database to Matrix Market\n"
                           "  kvomtx convert data k.txt --from 7    a dense file with another ending to triplets\n"
                           "  kvomtx convert model.mat:K k.mtx      a variable of a .mat file\n"
                           "  zcat k.hb.gz | kvomtx convert - - --to mtx | ...\n\n";

struct Options {
    std::string input;
    std::string output;
    std::string from;
    std::string to;
    std::string nodes;
    std::string memory;
    bool checksums = false;
};

/// Lines of "node degree-of-freedom", one for each row of the matrix.
KVOFsmSystemDofDefinition ReadNodes(std::string const& path)
{
    std::ifstream file(path);
    if (!file)
        throw ToolError(ExitCode::kUnreadable, path + ": cannot be read; check the name");
    std::vector<int> nodes, dofs;
    for (std::string line; std::getline(file, line);) {
        int node = 0, dof = 0;
        std::string rest;
        std::istringstream words(line);
        if (!(words >> node >> dof) || words >> rest)
            throw ToolError(ExitCode::kUnreadable,
                            path + ": line " + std::to_string(nodes.size() + 1) + ": expected \"node degree-of-freedom\"");
        nodes.push_back(node);
        dofs.push_back(dof);
    }
    return KVOFsmSystemDofDefinition(static_cast<int>(nodes.size()), nodes.data(), dofs.data());
}

void RunConvert(Options const& options)
{
    MatrixName const input = ParseMatrixName(options.input, options.from, true);
    MatrixName const output = ParseMatrixName(options.output, options.to, false);
    RequireSeparateFiles({output.path}, {input.path, options.nodes});
    std::optional<KVOFsmSystemDofDefinition> dofs;
    if (!options.nodes.empty())
        dofs = ReadNodes(options.nodes);
    MemoryForFiles const memory(options.memory, ScratchFolder::FolderOf(output.path));
    MatrixWriter writer(output, dofs ? &*dofs : nullptr, options.checksums);
    auto const matrix = ReadMatrix(input);
    writer.Prepare(*matrix, &input);
    writer.Commit();
    if (output.path != kStandardStream)
        std::printf("%s: %d x %d, %s\n", output.path.c_str(), matrix->NumberOfRows(), matrix->NumberOfColumns(),
                    DescribeFormat(output.format).c_str());
}

} // namespace

void AddConvertCommand(CLI::App& app, Command& chosen)
{
    auto const options = std::make_shared<Options>();
    CLI::App& convert = AddCommand(app, "convert", "A matrix file in another format", std::string(kFooter) + kFormatHelp);
    AddRequired(convert, "IN", options->input, "Matrix file, FILE.sim:ID, FILE.mat:NAME or - (standard input)");
    AddRequired(convert, "OUT", options->output, "Matrix file to write, or - (standard output)");
    AddOption(convert, "--from", options->from, "Format of IN, when nothing in it or its ending tells it");
    AddOption(convert, "--to", options->to, "Format of OUT, when its ending does not tell it");
    AddOption(convert, "--nodes", options->nodes, "For format 4: a file with a line \"node degree-of-freedom\" for each row", RequireName);
    AddFlag(convert, "--checksums", options->checksums, "Of a database: keep checksums of the values, for db check");
    AddMemory(convert, options->memory, "reading and writing");
    AddForce(convert);
    SetWork(convert, chosen, [options] { RunConvert(*options); });
}
