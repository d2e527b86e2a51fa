// kvomtx make-brick.

#include "Commands.h"

#include "BrickModel.h"
#include "Errors.h"
#include "Interrupt.h"
#include "MatrixName.h"
#include "MatrixWriter.h"
#include "OutputFile.h"
#include "Progress.h"
#include "StandardStreams.h"
#include "Validators.h"

#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <limits>
#include <locale>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace
{

constexpr char kFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx make-brick 40 4 4 k.mtx m.mtx --size 10 1 1 --young 2.1e11 --density 7850\n"
    "  kvomtx modes k.mtx m.mtx\n\n"
    "A block of NX x NY x NZ linear 8-node bricks, isotropic and elastic, with three displacements a node, numbered along x first,\n"
    "then y, then z. The face x = 0 is clamped: its unknowns are left out. The mass is the consistent one. The elements are stiff in\n"
    "bending (shear locking): a slender block takes elements no longer than a tenth of its height for one per cent.\n"
    "--coordinates writes a line \"x y z\" for each node that is not clamped, which kvomtx modes --coordinates reads.";

struct Options {
    std::array<int, 3> elements{};
    std::array<double, 3> size{};
    BrickProperties properties;
    bool free = false;
    std::string stiffness;
    std::string mass;
    std::string format;
    std::string coordinates;
};

// For each unknown of the whole block its number in the model, or -1 when it is clamped.
std::vector<int> NumberUnknowns(Options const& options)
{
    int const nodesAlongX = options.elements[0] + 1;
    int const nodes = nodesAlongX * (options.elements[1] + 1) * (options.elements[2] + 1);
    std::vector<int> numbers;
    int next = 0;
    for (int node = 0; node < nodes; ++node)
        for (int d = 0; d < 3; ++d)
            numbers.push_back(options.free || node % nodesAlongX != 0 ? next++ : -1);
    return numbers;
}

// Of the nodes with unknowns, in their order.
void WriteCoordinates(char const* path, Options const& options, std::vector<int> const& numbers)
{
    std::ofstream file(path);
    file.imbue(std::locale::classic());
    file.precision(std::numeric_limits<double>::max_digits10);
    file << "% x y z of each node, which has 3 unknowns\n";
    auto const& edges = options.properties.edges;
    int const alongX = options.elements[0] + 1, alongY = options.elements[1] + 1;
    for (std::size_t unknown = 0; unknown < numbers.size(); unknown += 3)
        if (int const node = static_cast<int>(unknown / 3); numbers[unknown] >= 0)
            file << node % alongX * edges[0] << ' ' << node / alongX % alongY * edges[1] << ' ' << node / (alongX * alongY) * edges[2]
                 << '\n';
    file.close();
    if (!file)
        KVOSrvMtxFileWriteFailure(path).Throw("tools/BrickCommand", __LINE__);
}

std::unique_ptr<KVOSrvSparseMatrix> MakeMatrix(BrickRows const& rows, std::vector<int> const& numbers)
{
    int const order = std::max(0, *std::ranges::max_element(numbers) + 1);
    auto matrix = std::make_unique<KVOSrvSparseMatrix>(order, order);
    matrix->BeginAssembly();
    for (std::size_t row = 0; row < numbers.size(); ++row) {
        if (numbers[row] < 0)
            continue;
        for (auto k = static_cast<std::size_t>(rows.start[row]); k < static_cast<std::size_t>(rows.start[row + 1]); ++k) {
            if (!std::isfinite(rows.values[k]))
                throw ToolError(ExitCode::kUsage,
                                "the entries are beyond the range of numbers; take other units for --size, --young and --density");
            int const column = numbers[static_cast<std::size_t>(rows.columns[k])];
            if (column >= 0 && rows.values[k] != 0.0) // the mass does not couple the directions
                matrix->AddData(static_cast<unsigned>(numbers[row]), static_cast<unsigned>(column), rows.values[k]);
        }
    }
    matrix->EndAssembly();
    return matrix;
}

void RequirePossible(Options const& options)
{
    constexpr std::int64_t kEntriesOfNode = 243; // with its 26 neighbours
    std::int64_t nodes = 1;
    for (int const count : options.elements) {
        nodes *= std::int64_t{count} + 1;
        if (nodes * kEntriesOfNode > INT_MAX)
            throw ToolError(ExitCode::kUsage, "the block is too large: a matrix has at most 2147483647 entries; take fewer elements");
    }
    if (!(options.properties.poissonsRatio < 0.5) || !(options.properties.poissonsRatio > -1.0))
        throw ToolError(ExitCode::kUsage, "Poisson's ratio lies between -1 and 0.5; give another --poisson");
}

void RunBrick(Options options)
{
    RequirePossible(options);
    for (std::size_t d = 0; d < 3; ++d)
        options.properties.edges[d] = (options.size[d] > 0.0 ? options.size[d] : options.elements[d]) / options.elements[d];
    MatrixName const stiffnessName = ParseMatrixName(options.stiffness, options.format, false);
    MatrixName const massName = ParseMatrixName(options.mass, options.format, false);
    RequireSeparateFiles({stiffnessName.path, massName.path, options.coordinates}, {});
    if (stiffnessName.path == kStandardStream || massName.path == kStandardStream)
        throw ToolError(ExitCode::kUsage, "two matrices do not go to the standard output; name files");
    MatrixWriter stiffnessWriter(stiffnessName), massWriter(massName);
    std::optional<OutputFile> coordinates;
    if (!options.coordinates.empty())
        coordinates.emplace(options.coordinates);

    Progress progress("making the model");
    auto const& n = options.elements;
    BrickModel const model(n[0], n[1], n[2], {}, options.properties);
    std::vector<int> const numbers = NumberUnknowns(options);
    auto const stiffness = MakeMatrix(model.Assembled(), numbers);
    CheckInterrupt();
    auto const mass = MakeMatrix(model.Assembled(BrickModel::ElementMass(options.properties)), numbers);
    CheckInterrupt();
    stiffnessWriter.Prepare(*stiffness);
    massWriter.Prepare(*mass);
    if (coordinates)
        coordinates->Write([&](char const* path) { WriteCoordinates(path, options, numbers); });
    CheckInterrupt();
    stiffnessWriter.Commit();
    massWriter.Commit();
    if (coordinates)
        coordinates->Commit();
    std::printf("%s, %s: %d unknowns, %d and %d entries\n", options.stiffness.c_str(), options.mass.c_str(), stiffness->NumberOfRows(),
                stiffness->NumberOfNonzeros(), mass->NumberOfNonzeros());
}

} // namespace

void AddBrickCommand(CLI::App& app, Command& chosen)
{
    auto const options = std::make_shared<Options>();
    CLI::App& brick = AddCommand(app, "make-brick", "A stiffness and mass pair of a clamped elastic block", kFooter);
    char const* const names[] = {"NX", "NY", "NZ"};
    for (std::size_t d = 0; d < 3; ++d)
        AddRequired(brick, names[d], options->elements[d], "Number of elements along that edge", RequireAtLeastOne);
    AddRequired(brick, "OUT_K", options->stiffness, "Stiffness matrix to write");
    AddRequired(brick, "OUT_M", options->mass, "Mass matrix to write");
    AddOption(brick, "--size", options->size, "Edges of the block along x, y and z (NX NY NZ)", RequirePositive);
    AddOption(brick, "--young", options->properties.youngsModulus, "Young's modulus (1)", RequirePositive);
    AddOption(brick, "--poisson", options->properties.poissonsRatio, "Poisson's ratio, below 0.5 (0.3)");
    AddOption(brick, "--density", options->properties.density, "Density (1)", RequirePositive);
    AddOption(brick, "--coordinates", options->coordinates, "File to write the places of the nodes to", RequireName);
    AddFlag(brick, "--free", options->free, "Clamp nothing: six rigid body modes");
    AddOption(brick, "--format", options->format, "Format of both files, when their endings do not tell it (see convert --help)");
    AddForce(brick);
    SetWork(brick, chosen, [options] { RunBrick(*options); });
}
