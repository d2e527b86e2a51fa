// kvomtx modes.

#include "Commands.h"

#include "ConvergencePicture.h"
#include "Database.h"
#include "Errors.h"
#include "FullMatrix.h"
#include "MatrixName.h"
#include "MatrixReader.h"
#include "ModesReport.h"
#include "NodeCoordinates.h"
#include "PictureFile.h"
#include "Progress.h"
#include "ProviderMemory.h"
#include "ScratchFolder.h"
#include "Source.h"
#include "Symmetry.h"
#include "Validators.h"

#include "KVOSimCSet.h"
#include "KVOSimException.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvModes.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvModesParticipation.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

constexpr int kMostOfNode = 99; // columns of a table that still is one
constexpr char kFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx modes data/bcsstk11.mtx data/bcsstm12.mtx --count 5 -o orecar.sim --picture convergence.png\n\n"
    "K and M are symmetric and of one order; M may be singular. The frequency of an eigenvalue lambda is sqrt(lambda) / (2 pi).\n"
    "The database holds the stiffness (matrix 0), the mass (1), the modes, scaled to x^T M x = 1 (2, one a column), and the\n"
    "eigenvalues (3). The residual of a mode is |K x - lambda M x| over (lambda + shift) |M x|, both in the norm of the inverse\n"
    "of K + shift M; it bounds the distance of lambda to an exact eigenvalue, relative to lambda + shift. At the end the\n"
    "eigenvalues below the last one are counted: none is missing, or the command fails.\n"
    "A free model has rigid body modes of frequency 0; its singular stiffness is shifted. --shift, in the unit of lambda, is\n"
    "chosen by itself where it is needed and not given: about the lowest eigenvalue that is not 0 is a good one. It is moved\n"
    "where the eigenvalues turn out to lie close together and far from it; the one that was used last is printed.\n"
    "With --masses or --coordinates the participation factor x^T M r of each mode and its effective mass, the square, follow, for\n"
    "directions r of the model's motion; all modes together hold the total mass r^T M r of what is not clamped. They are the unit\n"
    "motions of unknowns 1 to N of all nodes or, from lines \"x y z\", one for each node of 3 or 6 unknowns, or \"x y z dof\", one for\n"
    "each unknown (dof 1 to 3 along, 4 to 6 about x, y, z; % begins a comment), those of a rigid body: along x, y, z, then about\n"
    "axes through --about. The database holds the factors as matrix 4, a direction a column.\n"
    "A long search is best run with --keep FILE: after a kill or a power cut the same command with --resume FILE instead goes\n"
    "on with it. FILE is removed once the result is written.\n"
    "With --json one object is printed, with the arrays eigenvalues, frequencies and residuals.";

struct Options {
    std::string stiffness;
    std::string mass;
    std::string format;
    std::string output;
    std::string picture;
    std::string scratch;
    std::string reference;
    std::string keep;
    std::string resume;
    bool checksums = false;
    bool json = false;
    bool inRadians = false;
    bool showsAccount = false;
    bool isNotCounted = false;
    std::vector<double> range; // two frequencies, or none
    int unknownsOfNode = 0;    // for directions by degree of freedom; 0: none such
    std::string coordinates;   // for the motions of a rigid body; empty: none
    std::vector<double> about; // a point, or none
    std::string memory;        // empty: no limit
    KVOSrvModesSettings settings;
};

std::string DefaultOutput(std::string const& stiffness)
{
    return std::filesystem::path(stiffness).stem().string() + "-modes.sim";
}

std::string FileOf(MatrixName const& name)
{
    return std::filesystem::path(name.text).filename().string();
}

std::unique_ptr<KVOSrvSparseMatrix> ReadSymmetric(MatrixName const& name)
{
    FullMatrix const matrix(ReadMatrix(name));
    RequireSymmetric(matrix.Rows(), name.text);
    return SymmetricPart(matrix.Rows());
}

/// A stiffness or mass matrix in half storage, which goes into the output database too.
std::unique_ptr<KVOSrvSparseMatrix> TakeMatrix(MatrixName const& name, OutputDatabase& database, int type, KVOSimCSetID& unknowns,
                                               bool checksums)
{
    auto matrix = ReadSymmetric(name);
    int const order = matrix->NumberOfRows();
    if (order == 0)
        throw ToolError(ExitCode::kCannot, name.text + ": has no rows; give the matrix of a model");
    if (unknowns.IsNull())
        unknowns = database.MakeSet(order);
    else if (KVOSimCSet(unknowns).Size() != order)
        throw ToolError(ExitCode::kCannot, name.text + ": is of order " + std::to_string(order) + " and the stiffness of order " +
                                               std::to_string(KVOSimCSet(unknowns).Size()) +
                                               "; give the stiffness and the mass of one model");
    OutputDatabase::Describe(database.StoreSparse(*matrix, type, unknowns, unknowns, checksums), DescribeType(type), "",
                             "from " + DescribeSource(name));
    return matrix;
}

void StoreModes(KVOSrvModes const& found, OutputDatabase& database, KVOSimCSetID const& unknowns, bool checksums)
{
    constexpr int kChunkRows = 16384;
    int const count = found.Count();
    if (count == 0)
        return; // of a range that holds none
    KVOSimCSetID const numbers = database.MakeSet(count);
    KVOSimPosition position(database.Context());
    KVOSimDistributionID const modesID = KVOSrvUtilities::Create2DDistribution(
        position, kModesType, unknowns, numbers, std::min(kChunkRows, found.Modes().NumberOfRows()), count, checksums);
    OutputDatabase::Describe(modesID, DescribeType(kModesType), "",
                             "mode shapes of stiffness and mass, a column each; generalized masses are 1");
    KVOSrvDenseMatrix(modesID).CopyValues(&found.Modes());
    KVOSimDistributionID const eigenvaluesID = KVOSrvUtilities::Create1DDistribution(position, kEigenvaluesType, numbers, -1);
    OutputDatabase::Describe(eigenvaluesID, DescribeType(kEigenvaluesType), "(rad/s)^2", "of the modes, ascending");
    KVOSrvDenseMatrix eigenvalues(eigenvaluesID);
    KVOSrvMatrix values(count, 1, nullptr, false, false);
    std::copy_n(found.Eigenvalues(), count, values.Values());
    eigenvalues.SetColumns(0, 0, values);
}

// The directions r, of which the participation is asked for.
struct Directions {
    std::vector<std::string> names;
    std::unique_ptr<KVOSrvMatrix> vectors;
};

Directions ByDegreeOfFreedom(Options const& options, int order)
{
    int const count = options.unknownsOfNode;
    if (order % count != 0)
        throw ToolError(ExitCode::kCannot, options.stiffness + ": has " + std::to_string(order) + " unknowns, no multiple of " +
                                               std::to_string(count) + "; give --masses the unknowns of a node, or use --coordinates");
    Directions directions{{}, KVOSrvModesParticipation::UnitDirections(order, count)};
    for (int d = 1; d <= count; ++d)
        directions.names.push_back(std::to_string(d));
    return directions;
}

Directions AlongAndAboutAxes(NodeCoordinates const& coordinates, Options const& options, int order)
{
    return {{"x", "y", "z", "rot x", "rot y", "rot z"},
            coordinates.RigidMotions(order, options.about.empty() ? nullptr : options.about.data())};
}

ParticipationReport Participation(Directions const& directions, KVOSrvModes const& found, KVOSrvSparseMatrix const& mass)
{
    KVOSrvDenseMatrix const none;
    ParticipationReport report{directions.names, {found.Count() > 0 ? found.Modes() : none, mass, *directions.vectors}};
    for (int d = 0; d < report.values.NumberOfDirections(); ++d)
        if (!std::isfinite(report.values.TotalMass(d)))
            throw ToolError(ExitCode::kCannot, "the mass of direction " + directions.names[static_cast<std::size_t>(d)] +
                                                   " is beyond the range of numbers; take other units of length or mass");
    return report;
}

void StoreParticipation(KVOSrvModesParticipation const& values, OutputDatabase& database, bool checksums)
{
    if (values.NumberOfModes() == 0)
        return;
    KVOSimPosition position(database.Context());
    int const modes = values.NumberOfModes(), directions = values.NumberOfDirections();
    KVOSimCSetID const rows = database.MakeSet(modes), columns = database.MakeSet(directions);
    KVOSimDistributionID const id =
        KVOSrvUtilities::Create2DDistribution(position, kParticipationType, rows, columns, modes, directions, checksums);
    OutputDatabase::Describe(id, DescribeType(kParticipationType), "", "of the modes, a row each, in the directions, a column each");
    KVOSrvDenseMatrix factors(id);
    factors.SetColumns(0, directions - 1, values.Factors());
}

// Shows where the search stands, and keeps it for the picture.
struct Watch {
    // Before a factorization that takes longer than one waits for without a word, at the 10 to 50 Gflop/s of a core.
    static std::string Warning(double flops)
    {
        constexpr double kMinute = 1e12;
        char text[80] = "";
        if (flops >= kMinute)
            std::snprintf(text, sizeof text, ", which takes minutes: %.1e operations", flops);
        return text;
    }

    Progress progress{"ordering the unknowns"};
    ConvergenceHistory history;

    void Take(KVOSrvModesProgress const& state)
    {
        bool const isSearching = state.residualCount > 0;
        if (isSearching)
            history.emplace_back(state.residuals, state.residuals + state.residualCount);
        progress.Say(std::string(state.doing) + (isSearching ? ", step " + std::to_string(state.step) + ", " + std::to_string(state.found) +
                                                                   " of " + std::to_string(state.wanted) + " modes"
                                                             : Warning(state.flops)));
        progress.Set(isSearching ? std::clamp(state.share, 0.0, 1.0) : -1.0); // nobody knows how far a factorization is
    }
};

ExitCode CodeOf(KVOSrvModesFailure::Kind kind)
{
    return kind == KVOSrvModesFailure::Disk   ? ExitCode::kUnwritable
           : kind == KVOSrvModesFailure::Kept ? ExitCode::kUnreadable
                                              : ExitCode::kCannot;
}

// What failed, and the options that it speaks of.
std::string TextOf(KVOSrvModesFailure const& failure)
{
    constexpr std::pair<char const*, char const*> kOptions[] = {
        {"shift or", "--shift"},       {"shift greater", "--shift"}, {"another shift", "--shift"}, {"fewer", "--count"},
        {"more modes", "--count"},     {"another count", "--count"}, {"range", "--range"},         {"memory granted", "--memory"},
        {"what it keeps", "--resume"}, {"was kept", "--keep"}};
    std::string text = failure.UserReport().c_str(), options;
    for (auto const& [words, option] : kOptions)
        if (text.find(words) != std::string::npos)
            options += (options.empty() ? " (" : ", ") + std::string(option);
    return text + options + (options.empty() ? "" : ")");
}

// The file that a search is kept in is an output, but while it is opened to go on. Other databases are not meant.
std::optional<ToolError> FailureOfKept(KVOSimException const& failure, KVOSrvModesSettings const& settings)
{
    if (settings.keep == nullptr || !std::string_view(failure.Path()).starts_with(settings.keep))
        return std::nullopt;
    std::string text = failure.UserReport().c_str();
    if (text.ends_with('.'))
        text.pop_back();
    KVOSimException::Kind const kind = failure.FailureKind();
    if (kind == KVOSimException::Kind::NoSpace || kind == KVOSimException::Kind::System)
        return ToolError(ExitCode::kUnwritable, text + "; make room, and go on with --resume where steps were kept before");
    if (!settings.resume)
        return ToolError(ExitCode::kUnwritable, text + "; choose another place");
    return std::nullopt;
}

std::unique_ptr<KVOSrvModes> Compute(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass,
                                     KVOSrvModesSettings const& settings, ConvergenceHistory& history)
{
    Watch watch;
    auto const report = [](void* context, KVOSrvModesProgress const& state) { static_cast<Watch*>(context)->Take(state); };
    try {
        auto found = std::make_unique<KVOSrvModes>(stiffness, mass, settings, report, &watch);
        history = std::move(watch.history);
        return found;
    } catch (KVOSrvModesFailure const& failure) {
        throw ToolError(CodeOf(failure.WhatFailed()), TextOf(failure));
    } catch (KVOSimException const& failure) {
        if (std::optional<ToolError> const error = FailureOfKept(failure, settings))
            throw *error;
        throw;
    }
}

void RequireOneKindOfDirections(Options const& options)
{
    if (options.unknownsOfNode > 0 && !options.coordinates.empty())
        throw ToolError(ExitCode::kUsage, "--masses and --coordinates both give directions; choose one of them");
    if (!options.about.empty() && options.coordinates.empty())
        throw ToolError(ExitCode::kUsage, "--about is a point of --coordinates, which are missing");
    for (double const coordinate : options.about)
        if (!std::isfinite(coordinate))
            throw ToolError(ExitCode::kUsage, "--about needs three finite numbers");
}

void RunModes(Options const& options)
{
    RequireOneKindOfDirections(options);
    auto const begin = std::chrono::steady_clock::now();
    MatrixName const stiffnessName = ParseMatrixName(options.stiffness, options.format, true);
    MatrixName const massName = ParseMatrixName(options.mass, options.format, true);
    std::string const output = options.output.empty() ? DefaultOutput(stiffnessName.path) : options.output;
    if (!options.keep.empty() && !options.resume.empty())
        throw ToolError(ExitCode::kUsage, "give --keep or --resume: a search that goes on is kept in its file");
    RequireSeparateFiles({output, options.picture, options.keep},
                         {stiffnessName.path, massName.path, options.reference, options.coordinates, options.resume});
    RequireProviderMemory();

    std::optional<PictureFile> picture;
    if (!options.picture.empty())
        picture.emplace(options.picture);
    OutputDatabase database(output);
    std::optional<ReferenceFrequencies> reference;
    if (!options.reference.empty())
        reference.emplace(options.reference);
    std::optional<NodeCoordinates> coordinates;
    if (!options.coordinates.empty())
        coordinates.emplace(options.coordinates);
    ScratchFolder const scratch(options.scratch.empty() ? ScratchFolder::FolderOf(output) : options.scratch);
    KVOSimCSetID unknowns;
    auto const stiffness = TakeMatrix(stiffnessName, database, kStiffnessType, unknowns, options.checksums);
    auto const mass = TakeMatrix(massName, database, kMassType, unknowns, options.checksums);

    std::optional<Directions> directions;
    if (options.unknownsOfNode > 0)
        directions = ByDegreeOfFreedom(options, mass->NumberOfRows());
    else if (coordinates)
        directions = AlongAndAboutAxes(*coordinates, options, mass->NumberOfRows());

    KVOSrvModesSettings settings = options.settings;
    settings.certify = !options.isNotCounted;
    settings.memory = BytesOf(options.memory);
    if (!options.range.empty())
        std::tie(settings.from, settings.to) = EigenvaluesOf(options.range, options.inRadians);
    std::string const& kept = options.resume.empty() ? options.keep : options.resume;
    settings.keep = kept.empty() ? nullptr : kept.c_str();
    settings.resume = !options.resume.empty();
    ConvergenceHistory history;
    auto const found = Compute(*stiffness, *mass, settings, history);
    StoreModes(*found, database, unknowns, options.checksums);
    std::optional<ParticipationReport> participation;
    if (directions) {
        participation = Participation(*directions, *found, *mass);
        StoreParticipation(participation->values, database, options.checksums);
    }
    database.Finish();
    if (picture)
        DrawConvergence(history,
                        std::to_string(found->Count()) + (found->Count() == 1 ? " mode of " : " modes of ") + FileOf(stiffnessName) + ", " +
                            FileOf(massName),
                        *picture);
    database.Commit();
    if (picture)
        picture->Commit();
    if (std::error_code ignored; !kept.empty())
        std::filesystem::remove(kept, ignored); // the result is there

    std::chrono::duration<double> const elapsed = std::chrono::steady_clock::now() - begin;
    ModesReport const report{options.stiffness,
                             options.mass,
                             output,
                             options.picture,
                             stiffness->NumberOfRows(),
                             elapsed.count(),
                             {found->Eigenvalues(), found->Eigenvalues() + found->Count()},
                             {found->Residuals(), found->Residuals() + found->Count()},
                             found->Account(),
                             FrequenciesOf({found->Eigenvalues(), found->Eigenvalues() + found->Count()}, options.inRadians),
                             options.inRadians,
                             options.showsAccount,
                             std::move(reference),
                             std::move(participation)};
    if (options.json)
        PrintJson(report);
    else
        PrintTable(report);
    RequireAgreement(report);
}

} // namespace

void AddModesCommand(CLI::App& app, Command& chosen)
{
    auto const options = std::make_shared<Options>();
    CLI::App& modes = AddCommand(app, "modes", "The lowest natural frequencies and modes of a stiffness and mass pair", kFooter);
    AddRequired(modes, "K", options->stiffness, "Stiffness matrix: a matrix file or FILE.sim:ID");
    AddRequired(modes, "M", options->mass, "Mass matrix");
    AddOption(modes, "-n,--count", options->settings.count, "Number of modes (10)", RequireAtLeastOne);
    AddOption(modes, "-o,--output", options->output, "Database to write (K's name with -modes.sim)", RequireName);
    AddOption(modes, "--picture", options->picture, "Draw the convergence into this picture: .png or .svg", RequireName);
    AddOption(modes, "--reference", options->reference,
              "File of \"lambda frequency\" lines; fail where a frequency differs by 1e-8 relatively", RequireName);
    AddOption(modes, "--shift", options->settings.shift, "Begin with K + shift M instead of K");
    AddOption(modes, "--scratch", options->scratch, "Folder for scratch files (that of the output)", RequireName);
    AddOption(modes, "--format", options->format, "Format of K and M, when nothing in them or their endings tells it (see convert --help)");
    AddFlag(modes, "--checksums", options->checksums, "Keep checksums of the values of matrices and modes, for db check");
    AddOption(modes, "--range", options->range, 2, "Find all modes from one frequency to another instead of the lowest");
    AddFlag(modes, "--rad", options->inRadians, "Frequencies are circular, omega = sqrt(lambda), in --range and in the output");
    AddOption(
        modes, "--memory", options->memory,
        "Bytes that factor and search may take beside the matrices and their ordering, as 600M or 2G: else the factor goes to the disk",
        RequireBytes);
    AddOption(modes, "--tolerance", options->settings.tolerance, "Largest residual of a mode (1e-10)", RequirePositive);
    AddOption(modes, "--masses", options->unknownsOfNode, "Effective masses by degree of freedom, N unknowns a node", 1, kMostOfNode);
    AddOption(modes, "--coordinates", options->coordinates,
              "Effective masses along and about the axes: file of \"x y z\" or \"x y z dof\" lines", RequireName);
    AddOption(modes, "--about", options->about, 3, "Point that the axes of rotations go through (the origin)");
    AddOption(modes, "--keep", options->keep, "Keep the search in this new file, every few steps, until the result is written",
              RequireName);
    AddOption(modes, "--resume", options->resume, "Go on with the search that --keep has kept in this file", RequireName);
    AddFlag(modes, "--view", options->showsAccount, "Print what was done: ordering, factor, steps, memory, times");
    AddFlag(modes, "--no-count", options->isNotCounted, "Do not count the eigenvalues below the last one, which takes one factorization");
    AddFlag(modes, "--json", options->json, "Print one JSON object");
    AddForce(modes);
    SetWork(modes, chosen, [options] { RunModes(*options); });
}
