// kvomtx-mpi modes.

#include "Commands.h"

#include "Database.h"
#include "Errors.h"
#include "FileMark.h"
#include "FullMatrix.h"
#include "MatrixName.h"
#include "MatrixReader.h"
#include "ModelPair.h"
#include "ModesOnRanks.h"
#include "ModesReport.h"
#include "Petsc.h"
#include "Ranks.h"
#include "SharedMatrix.h"
#include "Symmetry.h"
#include "Validators.h"

#include "KVOSimCSet.h"
#include "KVOSimDistribution.h"
#include "KVOSimPosition.h"
#include "KVOSrvBlockWriter.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <tuple>

namespace
{

constexpr char kFooter[] =
    "\nEXAMPLE\n"
    "  mpirun -n 4 kvomtx-mpi modes k.mtx m.mtx --count 20 -o modes.sim\n\n"
    "Does what kvomtx modes does, see its help, and writes the same database, with K, M and the modes shared by the ranks. DB alone is\n"
    "a database with one stiffness and one mass matrix, as kvomtx modes makes it. All ranks need the output's folder under one name.\n"
    "Options that begin with -st_ or -eps_ go to PETSc and SLEPc, each with the word behind it unless that begins with a hyphen.";

struct Options {
    std::string stiffness;
    std::string mass;
    std::string format;
    std::string output;
    std::string reference;
    bool json = false;
    bool inRadians = false;
    bool showsAccount = false;
    bool isNotCounted = false;
    std::vector<double> range;
    KVOSrvModesSettings settings;
};

/// What rank 0 makes of the inputs, and ends with.
struct Output {
    std::unique_ptr<OutputDatabase> database;
    std::optional<ReferenceFrequencies> reference;
    std::string stiffness; // as named by the user, or found
    std::string mass;
};

// The only matrix of that type.
MatrixName MatrixOfType(std::string const& path, int type)
{
    InputDatabase const database(path);
    KVOSimDistributionID found;
    int count = 0;
    for (KVOSimContextID const& context : database.Contexts())
        for (KVOSimDistributionID const& id : KVOSimContext(context).QueryDistributions())
            if (KVOSimDistribution(id).Type() == type && KVOSrvUtilities::IsSparseMatrix(KVOSimDistribution(id)) && ++count == 1)
                found = id;
    if (count != 1)
        throw ToolError(ExitCode::kUnreadable, path + ": holds " + (count == 0 ? "no" : "more than one") + " sparse matrix that is a " +
                                                   DescribeType(type) + "; name both matrices as " + path +
                                                   ":ID, kvomtx db ls shows the numbers");
    MatrixName name{path + ":" + std::to_string(found.Index()), path, MatrixFormat::kDatabase, -1, found.Index()};
    return name;
}

std::unique_ptr<KVOSrvSparseMatrix> ReadSymmetric(MatrixName const& name)
{
    auto matrix = ReadMatrix(name);
    if (matrix->Rows().diagonal != nullptr)
        return matrix;
    RequireSymmetric(matrix->Rows(), name.text);
    return SymmetricPart(matrix->Rows());
}

// Both matrices go into the output database, where the ranks read their rows.
void TakeInputs(Options const& options, Output& output, PairFacts& facts)
{
    MatrixName stiffnessName = ParseMatrixName(options.stiffness, options.format, true), massName = stiffnessName;
    if (!options.mass.empty()) {
        massName = ParseMatrixName(options.mass, options.format, true);
    } else if (stiffnessName.format != MatrixFormat::kDatabase) {
        throw ToolError(ExitCode::kUsage, options.stiffness + ": is no database, so the mass matrix is missing; give K and M");
    }
    std::string const path =
        options.output.empty() ? std::filesystem::path(stiffnessName.path).stem().string() + "-modes.sim" : options.output;
    RequireSeparateFiles({path}, {stiffnessName.path, massName.path, options.reference});
    output.database = std::make_unique<OutputDatabase>(path);
    if (!options.reference.empty())
        output.reference.emplace(options.reference);
    if (options.mass.empty()) {
        stiffnessName = MatrixOfType(stiffnessName.path, kStiffnessType);
        massName = MatrixOfType(massName.path, kMassType);
    }
    output.stiffness = stiffnessName.text;
    output.mass = massName.text;

    auto const stiffness = ReadSymmetric(stiffnessName), mass = ReadSymmetric(massName);
    facts.order = stiffness->NumberOfRows();
    if (facts.order == 0)
        throw ToolError(ExitCode::kCannot, stiffnessName.text + ": has no rows; give the matrix of a model");
    if (mass->NumberOfRows() != facts.order)
        throw ToolError(ExitCode::kCannot, massName.text + ": is of order " + std::to_string(mass->NumberOfRows()) +
                                               " and the stiffness of order " + std::to_string(facts.order) +
                                               "; give the stiffness and the mass of one model");
    ModelPair const pair(*stiffness, *mass);
    facts.massive = pair.Massive();
    facts.negative = pair.negative;
    facts.lowest = pair.lowest;
    facts.largest = pair.largest;
    KVOSimCSetID const unknowns = output.database->MakeSet(facts.order);
    output.database->StoreSparse(*stiffness, kStiffnessType, unknowns, unknowns, false);
    output.database->StoreSparse(*mass, kMassType, unknowns, unknowns, false);
    output.database->Finish();
}

KVOSimDistributionID MakeModes(OutputDatabase& database, RankModes const& found, RowShare const& share)
{
    int const count = static_cast<int>(found.eigenvalues.size());
    KVOSimArray<KVOSimDrawer> drawers;
    KVOSimDistribution(database.Context().QueryDistributions()[0]).QueryDrawers(drawers);
    KVOSimCSetID const unknowns = drawers[0].csets[0], numbers = database.MakeSet(count);
    KVOSimPosition position(database.Context());
    constexpr int kLeastColumns = 4; // of a block, which then begins at a page of the disk and fills pages
    KVOSimDistributionID const modes = KVOSrvUtilities::Create2DDistribution(position, kModesType, unknowns, numbers, share.rowsPerBlock,
                                                                             std::max(count, kLeastColumns), false);
    KVOSrvDenseMatrix eigenvalues(KVOSrvUtilities::Create1DDistribution(position, kEigenvaluesType, numbers, -1));
    KVOSrvMatrix values(count, 1, nullptr, false, false);
    std::copy(found.eigenvalues.begin(), found.eigenvalues.end(), values.Values());
    eigenvalues.SetColumns(0, 0, values);
    return modes;
}

void StoreModes(Ranks const& ranks, Output& output, std::string const& path, RankModes const& found, RowShare const& share)
{
    int const count = static_cast<int>(found.eigenvalues.size());
    if (count == 0)
        return; // of a range that holds none
    KVOSimDistributionID modes;
    ranks.OnFirst([&] {
        output.database->Resume();
        modes = MakeModes(*output.database, found, share);
    });
    WriteTogether(ranks, path, modes, [&](KVOSrvBlockWriter& writer) {
        int const first = share.FirstRow(ranks.Rank()), rows = share.Rows(ranks.Rank());
        if (rows > 0)
            writer.Write(first, first + rows - 1, 0, count - 1, found.rows.data(), rows);
    });
}

RankModes Compute(Ranks const& ranks, std::string const& path, PairFacts const& facts, RowShare const& share,
                  KVOSrvModesSettings const& settings, std::vector<std::string> const& solverOptions)
{
    Triplets stiffness, mass;
    RequireOneFile(ranks, path);
    ranks.Together([&] {
        int const first = share.FirstRow(ranks.Rank()), end = share.EndRow(ranks.Rank());
        stiffness = ReadRows(path, 0, first, end);
        mass = ReadRows(path, 1, first, end);
    });
    PetscSession const session(solverOptions);
    return FindModes(facts, share, ranks.Rank(), std::move(stiffness), std::move(mass), settings);
}

void RunModes(Options const& options, Ranks const& ranks, std::vector<std::string> const& solverOptions)
{
    auto const begin = std::chrono::steady_clock::now();
    KVOSrvModesSettings settings = options.settings;
    settings.certify = !options.isNotCounted;
    Output output;
    PairFacts facts;
    ranks.Together([&] {
        if (!options.range.empty())
            std::tie(settings.from, settings.to) = EigenvaluesOf(options.range, options.inRadians);
    });
    std::string path;
    ranks.OnFirst([&] {
        TakeInputs(options, output, facts);
        path = output.database->TemporaryPath();
    });
    ranks.Share(path);
    ranks.Share(&facts, sizeof facts);
    RowShare const share(facts.order, ranks.Size());
    RankModes const found = Compute(ranks, path, facts, share, settings, solverOptions);
    StoreModes(ranks, output, path, found, share);
    ranks.OnFirst([&] {
        output.database->Commit();
        std::chrono::duration<double> const elapsed = std::chrono::steady_clock::now() - begin;
        ModesReport const report{output.stiffness,
                                 output.mass,
                                 output.database->Path(),
                                 {},
                                 facts.order,
                                 elapsed.count(),
                                 found.eigenvalues,
                                 found.residuals,
                                 found.account,
                                 FrequenciesOf(found.eigenvalues, options.inRadians),
                                 options.inRadians,
                                 options.showsAccount,
                                 std::move(output.reference),
                                 {},
                                 ranks.Size(),
                                 found.solver,
                                 found.ordering,
                                 "Krylov-Schur"};
        options.json ? PrintJson(report) : PrintTable(report);
        RequireAgreement(report);
    });
}

} // namespace

void AddModesOnRanks(CLI::App& app, Command& chosen, Ranks const& ranks, std::vector<std::string> const& solverOptions)
{
    auto const options = std::make_shared<Options>();
    CLI::App& modes = AddCommand(app, "modes", "The lowest natural frequencies and modes of a stiffness and mass pair", kFooter);
    AddRequired(modes, "K", options->stiffness, "Stiffness matrix, a matrix file or FILE.sim:ID; or a database with both");
    AddOption(modes, "M", options->mass, "Mass matrix");
    AddOption(modes, "-n,--count", options->settings.count, "Number of modes (10)", RequireAtLeastOne);
    AddOption(modes, "-o,--output", options->output, "Database to write (K's name with -modes.sim)", RequireName);
    AddOption(modes, "--reference", options->reference,
              "File of \"lambda frequency\" lines; fail where a frequency differs by 1e-8 relatively", RequireName);
    AddOption(modes, "--shift", options->settings.shift, "Begin with K + shift M instead of K");
    AddOption(modes, "--format", options->format, "Format of K and M, when their endings do not tell it (see kvomtx convert --help)");
    AddOption(modes, "--range", options->range, 2, "Find all modes from one frequency to another instead of the lowest");
    AddFlag(modes, "--rad", options->inRadians, "Frequencies are circular, omega = sqrt(lambda), in --range and in the output");
    AddOption(modes, "--tolerance", options->settings.tolerance, "Largest residual of a mode (1e-10)", RequirePositive);
    AddFlag(modes, "--view", options->showsAccount, "Print what was done: ordering, factor, steps, memory, times");
    AddFlag(modes, "--no-count", options->isNotCounted, "Do not count the eigenvalues below the last one, which takes one factorization");
    AddFlag(modes, "--json", options->json, "Print one JSON object");
    AddForce(modes);
    SetWork(modes, chosen, [options, &ranks, &solverOptions] { RunModes(*options, ranks, solverOptions); });
}
