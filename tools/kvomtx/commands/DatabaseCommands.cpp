// kvomtx db.

#include "Commands.h"

#include "Database.h"
#include "Errors.h"
#include "MatrixName.h"
#include "MatrixReader.h"
#include "MatrixWriter.h"
#include "Progress.h"
#include "ScratchFolder.h"
#include "StandardStreams.h"
#include "StatedBytes.h"

#include "KVOSimCSet.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr char kListFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx db ls orecar.sim\n\n"
    "One line a stored matrix: the number that stands behind the colon in FILE.sim:ID (with the context in front of it,\n"
    "as in FILE.sim:1.4, where that is not the first one), its size, its storage, and what it is: the title that its maker gave it, or "
    "what kvomtx\n"
    "knows of its own; the unit of its values, and below it where it came from.";
constexpr char kExportFooter[] = "\nEXAMPLE\n"
                                 "  kvomtx db export orecar.sim 3 eigenvalues.mtx\n\n"
                                 "A sparse matrix is written in any format that convert writes, a dense one as a Matrix Market array\n"
                                 "or as a dense file.";

constexpr char kCheckFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx db check orecar.sim\n\n"
    "Reads the catalogue, the index that finds the values of each matrix, and all sparse matrices, and prints a line for each\n"
    "damage, with the number of the matrix: exit code 3. A sound database is one line. A journal that a killed program has left\n"
    "is taken into account, and nothing is written.";

/// One line of the list.
struct Stored {
    std::string id;
    std::string kind;
    std::string content;
    std::vector<int> sizes;
    std::vector<int> chunks;
    std::int64_t values = 0;
    int type = -1;
    std::string title, unit, description;
};

std::string KindOf(KVOSimDrawer const& drawer)
{
    return drawer.kind == KVOSimSparseSymDrawer ? "sparse, symmetric" : drawer.kind == KVOSimSparseDrawer ? "sparse" : "dense";
}

Stored Describe(KVOSimDistributionID const& id, KVOSimContextID const& firstContext)
{
    KVOSimDistribution const distribution(id);
    KVOSimArray<KVOSimDrawer> drawers;
    distribution.QueryDrawers(drawers);
    Stored stored;
    stored.id = (id.ContextID() == firstContext ? "" : std::to_string(id.ContextID().Index()) + ".") + std::to_string(id.Index());
    stored.type = distribution.Type();
    stored.content = DescribeType(stored.type);
    stored.title = distribution.Title();
    stored.unit = distribution.Unit();
    stored.description = distribution.Description();
    if (drawers.IsEmpty()) {
        stored.kind = "empty";
        return stored;
    }
    KVOSimDrawer const& drawer = drawers[0];
    stored.kind = KindOf(drawer) + (drawer.typeKey == KVOSimDouble ? "" : ", no doubles");
    stored.sizes.assign(drawer.dimensionSizes.begin(), drawer.dimensionSizes.end());
    stored.chunks.assign(drawer.chunkSizes.begin(), drawer.chunkSizes.end());
    if (drawer.kind == KVOSimDenseDrawer) { // stored by columns: dimension 0 are the columns
        std::ranges::reverse(stored.sizes);
        std::ranges::reverse(stored.chunks);
    }
    stored.values = distribution.DataSizeItems(drawer.id, 0);
    if (drawer.kind == KVOSimSparseSymDrawer)
        stored.values += distribution.DataSizeItems(drawer.id, 3);
    return stored;
}

std::string Times(std::vector<int> const& sizes)
{
    std::string text;
    for (int const size : sizes)
        text += (text.empty() ? "" : " x ") + std::to_string(size);
    return text;
}

// What it is: by its title, and by its type where that says more.
std::string Named(Stored const& stored)
{
    std::string text = stored.title.empty() ? stored.content : stored.title;
    if (!stored.title.empty() && !stored.content.empty() && stored.title != stored.content)
        text += " (" + stored.content + ")";
    return stored.unit.empty() ? text : text + " [" + stored.unit + "]";
}

void PrintList(std::vector<Stored> const& list, bool json)
{
    if (!json) {
        std::printf("%-6s %-20s %-18s %-14s %-14s %s\n", "ID", "size", "storage", "stored values", "chunks", "content");
        for (Stored const& stored : list) {
            std::printf("%-6s %-20s %-18s %-14lld %-14s %s\n", stored.id.c_str(), Times(stored.sizes).c_str(), stored.kind.c_str(),
                        static_cast<long long>(stored.values), Times(stored.chunks).c_str(), Named(stored).c_str());
            if (!stored.description.empty())
                std::printf("%-6s %s\n", "", stored.description.c_str());
        }
        return;
    }
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (Stored const& stored : list)
        array.push_back({{"id", stored.id},
                         {"sizes", stored.sizes},
                         {"storage", stored.kind},
                         {"stored_values", stored.values},
                         {"chunks", stored.chunks},
                         {"content", stored.content},
                         {"type", stored.type},
                         {"title", stored.title},
                         {"unit", stored.unit},
                         {"description", stored.description}});
    nlohmann::ordered_json object;
    object["matrices"] = array;
    std::printf("%s\n", object.dump(4).c_str());
}

void RunList(std::string const& path, bool json)
{
    InputDatabase const database(path);
    std::vector<Stored> list;
    KVOSimContextID first;
    for (KVOSimContextID const& context : database.Contexts()) {
        if (first.IsNull())
            first = context;
        for (KVOSimDistributionID const& id : KVOSimContext(context).QueryDistributions())
            list.push_back(Describe(id, first));
    }
    PrintList(list, json);
}

void RunCheck(std::string const& path, bool json)
{
    KVOSimCheckReport const report = InputDatabase(path).Check();
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (KVOSimDamage const& damage : report.damages) {
        std::string const id = (damage.context == 0 ? "" : std::to_string(damage.context) + ".") + std::to_string(damage.distribution);
        std::string const where = damage.distribution < 0 ? "catalogue" : id;
        if (!json)
            std::printf("%s: %s\n", where.c_str(), damage.what.Utf8());
        array.push_back({{"id", where}, {"drawer", damage.drawer}, {"what", damage.what.Utf8()}});
    }
    bool const sound = report.damages.IsEmpty();
    if (json) {
        nlohmann::ordered_json const object{{"sound", sound},          {"matrices", report.drawers},
                                            {"pieces", report.pieces}, {"checksums", report.hasChecksums},
                                            {"values", report.values}, {"damage", array}};
        std::printf("%s\n", object.dump(4, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    } else if (sound) {
        std::printf("%s: sound, matrices: %d%s\n", path.c_str(), report.drawers,
                    report.hasChecksums ? "" : "; its format has no checksums");
    }
    if (!sound)
        throw ToolError(ExitCode::kUnreadable, path + ": is damaged, see above; make it again");
}

void ExportDense(KVOSimDistributionID const& id, MatrixName const& source, MatrixName const& target)
{
    if (target.format != MatrixFormat::kMatrixMarket && target.format != MatrixFormat::kDense)
        throw ToolError(ExitCode::kUsage, source.text + ": is a dense matrix, which is written as .mtx or .dense only; name the output so");
    OutputFile file(target.path);
    Progress const progress("writing " + file.Path());
    try {
        KVOSrvDenseMatrix const matrix(id);
        bool const market = target.format == MatrixFormat::kMatrixMarket;
        file.Write([&](char const* path) { market ? matrix.ExportMatrixMarket(path) : matrix.ExportDense(path); });
    } catch (KVOSrvMtxIllegalInput const&) {
        throw ToolError(ExitCode::kUnreadable, source.text + ": is no matrix of doubles; kvomtx db ls shows what it is");
    }
    file.Commit();
}

void RunExport(std::string const& path, std::string const& id, std::string const& output, std::string const& format,
               std::string const& memory)
{
    MatrixName const source = ParseMatrixName(path + ":" + id, "sim", true);
    MatrixName const target = ParseMatrixName(output, format, false);
    if (source.distribution < 0)
        throw ToolError(ExitCode::kUsage, "\"" + id + "\" is no number of a matrix; kvomtx db ls shows the numbers");
    RequireSeparateFiles({target.path}, {source.path});
    MemoryForFiles const limit(memory, ScratchFolder::FolderOf(target.path));
    bool dense = false;
    {
        InputDatabase const database(source.path);
        KVOSimDistributionID const distribution = database.Find(source, MatrixKind::kAny);
        dense = KVOSrvUtilities::IsDenseMatrix(KVOSimDistribution(distribution));
        if (dense)
            ExportDense(distribution, source, target);
    }
    if (!dense) {
        MatrixWriter writer(target);
        writer.Prepare(*ReadMatrix(source));
        writer.Commit();
    }
    if (output != kStandardStream)
        std::printf("%s: %s\n", output.c_str(), DescribeFormat(target.format).c_str());
}

} // namespace

void AddDatabaseCommands(CLI::App& app, Command& chosen)
{
    struct Options {
        std::string file;
        std::string id;
        std::string output;
        std::string format;
        std::string memory;
        bool json = false;
    };
    auto const options = std::make_shared<Options>();
    CLI::App& database = AddGroup(app, "db", "What a simulation database holds");
    CLI::App& list = AddCommand(database, "ls", "The matrices in a database", kListFooter);
    AddRequired(list, "FILE", options->file, "Database");
    AddFlag(list, "--json", options->json, "Print one JSON object");
    SetWork(list, chosen, [options] { RunList(options->file, options->json); });

    CLI::App& check = AddCommand(database, "check", "Whether a database is damaged", kCheckFooter);
    AddRequired(check, "FILE", options->file, "Database");
    AddFlag(check, "--json", options->json, "Print one JSON object");
    SetWork(check, chosen, [options] { RunCheck(options->file, options->json); });

    CLI::App& take = AddCommand(database, "export", "A matrix of a database as a file", kExportFooter);
    AddRequired(take, "FILE", options->file, "Database");
    AddRequired(take, "ID", options->id, "Number of the matrix, as db ls shows it");
    AddRequired(take, "OUT", options->output, "Matrix file to write");
    AddOption(take, "--format", options->format, "Format of OUT, when its ending does not tell it (see convert --help)");
    AddMemory(take, options->memory, "reading and writing");
    AddForce(take);
    SetWork(take, chosen, [options] { RunExport(options->file, options->id, options->output, options->format, options->memory); });
}
