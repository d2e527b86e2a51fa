// kvomtx shape.

#include "Commands.h"

#include "BlockNodes.h"
#include "Database.h"
#include "Errors.h"
#include "ModesReport.h"
#include "NodeCoordinates.h"
#include "OutputFile.h"
#include "PictureFile.h"
#include "ShapePicture.h"
#include "Validators.h"

#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr char kFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx make-brick 40 4 4 k.mtx m.mtx --size 10 1 1 --coordinates nodes.txt\n"
    "  kvomtx modes k.mtx m.mtx -o beam.sim\n"
    "  kvomtx shape beam.sim nodes.txt --mode 3 -o mode3.png\n\n"
    "The block at rest, dashed, and its surface in the mode. The displacements are multiplied so that they can be seen, the largest\n"
    "one being an eighth of the block's diagonal, or by --amplify; the picture tells the factor, on the mode scaled to x^T M x = 1.";

struct Options {
    std::string database;
    std::string coordinates;
    std::string output;
    int mode = 1;
    double amplification = 0.0;
};

// What kvomtx modes has written: the first of that type.
KVOSrvDenseMatrix DenseOfType(InputDatabase const& database, DistributionType type)
{
    for (KVOSimContextID const& context : database.Contexts())
        for (KVOSimDistributionID const& id : KVOSimContext(context).QueryDistributions())
            if (KVOSimDistribution const distribution(id); distribution.Type() == type && KVOSrvUtilities::IsDenseMatrix(distribution))
                return KVOSrvDenseMatrix(id);
    throw ToolError(ExitCode::kUnreadable,
                    database.Path() + ": holds no " + DescribeType(type) + "; give a database that kvomtx modes has written");
}

std::vector<double> ColumnOf(KVOSrvDenseMatrix const& matrix, int column)
{
    std::vector<double> values(static_cast<std::size_t>(matrix.NumberOfRows()));
    KVOSrvMatrix target(matrix.NumberOfRows(), 1, values.data(), false, false);
    matrix.GetColumns(column, column, target);
    return values;
}

// A mode and its negative are the same one: of these the one whose largest displacement is along an axis, not against it.
void ChooseSign(std::vector<double>& displacements)
{
    auto const isSmaller = [](double a, double b) { return std::fabs(a) < std::fabs(b); };
    if (*std::ranges::max_element(displacements, isSmaller) < 0.0)
        for (double& displacement : displacements)
            displacement = -displacement;
}

void RunShape(Options const& options)
{
    RequireSeparateFiles({options.output}, {options.database, options.coordinates});
    PictureFile picture(options.output);
    BlockNodes const nodes{NodeCoordinates(options.coordinates)};
    InputDatabase const database(options.database);
    KVOSrvDenseMatrix const modes = DenseOfType(database, kModesType);
    if (modes.NumberOfRows() != nodes.NumberOfUnknowns())
        throw ToolError(ExitCode::kUnreadable, options.coordinates + ": is of a block of " + std::to_string(nodes.NumberOfUnknowns()) +
                                                   " unknowns, the modes are of " + std::to_string(modes.NumberOfRows()) +
                                                   "; give the file of the same block");
    if (options.mode > modes.NumberOfColumns())
        throw ToolError(ExitCode::kUsage, "--mode " + std::to_string(options.mode) + ": " + options.database + " holds " +
                                              std::to_string(modes.NumberOfColumns()) + " modes");
    std::vector<double> displacements = ColumnOf(modes, options.mode - 1);
    ChooseSign(displacements);
    double const eigenvalue = ColumnOf(DenseOfType(database, kEigenvaluesType), 0).at(static_cast<std::size_t>(options.mode - 1));
    char title[64];
    std::snprintf(title, sizeof title, "mode %d: %.6g Hz", options.mode, FrequenciesOf({eigenvalue}, false)[0]);
    double const amplification = DrawShape(
        {nodes, displacements, title, std::filesystem::path(options.database).filename().string(), options.amplification}, picture);
    picture.Commit();
    std::printf("%s: %s, displacements x %.6g\n", options.output.c_str(), title, amplification);
}

} // namespace

void AddShapeCommand(CLI::App& app, Command& chosen)
{
    auto const options = std::make_shared<Options>();
    CLI::App& shape = AddCommand(app, "shape", "A picture of a mode of a block that make-brick made", kFooter);
    AddRequired(shape, "FILE.sim", options->database, "Database that modes has written");
    AddRequired(shape, "NODES", options->coordinates, "Places of the nodes, as make-brick --coordinates writes them");
    AddRequired(shape, "-o,--output", options->output, "Picture to write: .png or .svg", RequireName);
    AddOption(shape, "--mode", options->mode, "Number of the mode, from 1 (1)", RequireAtLeastOne);
    AddOption(shape, "--amplify", options->amplification, "Factor of the displacements", RequirePositive);
    AddForce(shape);
    SetWork(shape, chosen, [options] { RunShape(*options); });
}
