// kvomtx-mpi gemm.

#include "Commands.h"

#include "Database.h"
#include "Errors.h"
#include "FileMark.h"
#include "MatrixName.h"
#include "ProcessGrid.h"
#include "Ranks.h"
#include "SharedMatrix.h"

#include "KVOSimCollection.h"
#include "KVOSimDistribution.h"
#include "KVOSimPosition.h"
#include "KVOSrvBlockWriter.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvUtilities.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace
{

constexpr char kFooter[] =
    "\nEXAMPLE\n"
    "  mpirun -n 4 kvomtx-mpi gemm model.sim 2 5 6\n\n"
    "Multiplies matrix A of the database by matrix B, in the memory of all ranks: the blocks of the matrices are dealt to them, each\n"
    "reads and writes its own. C is the number that the product gets, the next one that is free; it is there as a whole when the\n"
    "command ends well, and not at all otherwise. The rate counts two operations a term; reading and writing are not in it.";

struct Options {
    std::string path;
    int left = 0;
    int right = 0;
    int product = 0;
    bool json = false;
};

/// An operand: how it is dealt, and this rank's part.
struct Part {
    TileGrid grid;
    std::vector<double> values;
};

/// The product and how long it took.
struct Product {
    Part part;
    double operations = 0.0;
    double seconds = 0.0;
};

std::string Name(Options const& options, int number)
{
    return options.path + ":" + std::to_string(number);
}

std::unique_ptr<KVOSrvDenseMatrix> Open(InputDatabase const& database, Options const& options, int number)
{
    KVOSimDistributionID const id =
        database.Find({Name(options, number), options.path, MatrixFormat::kDatabase, -1, number}, MatrixKind::kDense);
    if (!KVOSrvUtilities::IsDenseMatrix(KVOSimDistribution(id)))
        throw ToolError(ExitCode::kUnreadable, Name(options, number) + ": is no dense matrix of doubles; kvomtx db ls shows what it is");
    return std::make_unique<KVOSrvDenseMatrix>(id);
}

// Its blocks are the tiles; of a matrix without chunks, which is one block, ranges.
TileGrid Deal(ProcessGrid const& processes, KVOSrvDenseMatrix const& matrix)
{
    constexpr int kTile = 512;
    KVOSimArray<KVOSimDrawer> drawers;
    KVOSimDistribution(matrix.DistributionID()).QueryDrawers(drawers);
    bool const hasChunks = !drawers[0].chunkSizes.IsEmpty();
    int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    int const tileRows = hasChunks ? matrix.MaxNumberOfRowsInBlock() : std::min(rows, kTile);
    int const tileColumns = hasChunks ? matrix.MaxNumberOfColumnsInBlock() : std::min(columns, kTile);
    return processes.Deal(rows, columns, std::max(1, tileRows), std::max(1, tileColumns));
}

// ScaLAPACK counts the values of a rank in int.
std::vector<double> Room(TileGrid const& grid)
{
    if (grid.LocalValues() > INT_MAX)
        throw ToolError(ExitCode::kCannot, "a rank would hold " + std::to_string(grid.LocalValues()) +
                                               " values of one matrix, more than ScaLAPACK counts; take more ranks, or smaller blocks");
    return std::vector<double>(static_cast<std::size_t>(std::max<std::int64_t>(1, grid.LocalValues())));
}

Part Read(ProcessGrid const& processes, KVOSrvDenseMatrix const& matrix)
{
    TileGrid const grid = Deal(processes, matrix);
    Part part{grid, Room(grid)};
    KVOSrvMatrix tile(grid.rows.tile, grid.columns.tile, nullptr, false, false);
    grid.ForEachTile([&](int firstRow, int lastRow, int firstColumn, int lastColumn, std::int64_t offset) {
        matrix.GetValues(firstRow, lastRow, firstColumn, lastColumn, tile);
        int const rows = lastRow - firstRow + 1;
        for (int j = 0; j <= lastColumn - firstColumn; ++j)
            std::copy_n(tile.Values() + std::int64_t{j} * rows, rows,
                        part.values.data() + offset + std::int64_t{j} * grid.LeadingDimension());
    });
    return part;
}

void RequireNext(Options const& options, KVOSimArray<KVOSimDistributionID> const& there)
{
    int next = 0;
    for (KVOSimDistributionID const& id : there)
        next = std::max(next, static_cast<int>(id.Index()) + 1);
    if (options.product != next)
        throw ToolError(ExitCode::kUsage, Name(options, options.product) + ": " +
                                              (options.product < next ? "is there already" : "is not the next number") +
                                              "; the product of this database is to be " + std::to_string(next));
}

// Reads the operands and multiplies. The database is closed again.
Product Compute(Options const& options, Ranks const& ranks)
{
    ProcessGrid const processes(ranks);
    Part a, b;
    Product product;
    ranks.Together([&] {
        InputDatabase const database(options.path);
        RequireNext(options, KVOSimContext(database.Contexts()[0]).QueryDistributions());
        auto const left = Open(database, options, options.left), right = Open(database, options, options.right);
        int rows = left->NumberOfRows(), columns = right->NumberOfColumns();
        if (left->NumberOfColumns() != right->NumberOfRows())
            throw ToolError(ExitCode::kCannot, Name(options, options.left) + " and " + Name(options, options.right) + ": " +
                                                   std::to_string(rows) + " x " + std::to_string(left->NumberOfColumns()) +
                                                   " cannot be multiplied by " + std::to_string(right->NumberOfRows()) + " x " +
                                                   std::to_string(columns) + "; the inner sizes must be equal");
        a = Read(processes, *left);
        b = Read(processes, *right);
        int tileRows = a.grid.rows.tile, tileColumns = b.grid.columns.tile;
        KVOSrvUtilities::LimitChunkSize2GB(tileRows, tileColumns, rows, columns);
        product.part.grid = processes.Deal(rows, columns, tileRows, tileColumns);
        product.part.values = Room(product.part.grid);
        product.operations = 2.0 * rows * columns * left->NumberOfColumns();
    });
    auto const begin = std::chrono::steady_clock::now();
    processes.Multiply(a.grid, a.values, b.grid, b.values, product.part.grid, product.part.values);
    std::chrono::duration<double> const elapsed = std::chrono::steady_clock::now() - begin;
    product.seconds = elapsed.count();
    return product;
}

/// The database that rank 0 has open for writing.
struct Writing {
    KVOSimDatabase database;
    std::optional<KVOSimContext> context;
    std::unique_ptr<KVOSimTransaction> transaction;
};

// One-dimensional matrices have no set of columns.
KVOSimCSetID SetOr(KVOSimContext& context, KVOSimCSetID const& set, int size)
{
    return set.IsNull() ? KVOSimCollection(context.CreateCollection(size)).BiggestCSetID() : set;
}

// The product has the rows of A and the columns of B.
KVOSimDistributionID MakeProduct(Options const& options, KVOSimContext& context, TileGrid const& grid)
{
    KVOSimDistributionID left, right;
    KVOSimArray<KVOSimDistributionID> const there = context.QueryDistributions();
    RequireNext(options, there);
    for (KVOSimDistributionID const& id : there) {
        if (id.Index() == options.left)
            left = id;
        if (id.Index() == options.right)
            right = id;
    }
    KVOSrvDenseMatrix const a(left), b(right);
    KVOSimPosition position(context);
    return KVOSrvUtilities::Create2DDistribution(position, kProductType, SetOr(context, a.RowCSetID(), grid.rows.size),
                                                 SetOr(context, b.ColumnCSetID(), grid.columns.size), grid.rows.tile, grid.columns.tile,
                                                 false);
}

void Store(Options const& options, Ranks const& ranks, Part const& part)
{
    Writing writing;
    KVOSimDistributionID product;
    ranks.OnFirst([&] {
        writing.database.OpenFile(DRXUnicodeString(options.path.c_str()), false);
        writing.context.emplace(writing.database.ContextID());
        writing.transaction = std::make_unique<KVOSimTransaction>(*writing.context);
        product = MakeProduct(options, *writing.context, part.grid);
    });
    WriteTogether(ranks, options.path, product, [&](KVOSrvBlockWriter& writer) {
        part.grid.ForEachTile([&](int firstRow, int lastRow, int firstColumn, int lastColumn, std::int64_t offset) {
            writer.Write(firstRow, lastRow, firstColumn, lastColumn, part.values.data() + offset, part.grid.LeadingDimension());
        });
    });
    ranks.OnFirst([&] {
        writing.transaction->Commit();
        writing.transaction.reset();
        writing.context.reset();
        writing.database.Close();
    });
}

void Print(Options const& options, Ranks const& ranks, Product const& product)
{
    TileGrid const& grid = product.part.grid;
    double const rate = product.operations / std::max(product.seconds, 1e-9) * 1e-9;
    if (!options.json) {
        std::printf("%s: %d x %d in %.3g s on %d ranks: %.3g Gflop/s\n", Name(options, options.product).c_str(), grid.rows.size,
                    grid.columns.size, product.seconds, ranks.Size(), rate);
        return;
    }
    nlohmann::ordered_json object;
    object["output"] = Name(options, options.product);
    object["rows"] = grid.rows.size;
    object["columns"] = grid.columns.size;
    object["ranks"] = ranks.Size();
    object["seconds"] = product.seconds;
    object["gigaflops"] = rate;
    std::printf("%s\n", object.dump(4, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}

void RunGemm(Options const& options, Ranks const& ranks)
{
    RequireOneFile(ranks, options.path);
    Product const product = Compute(options, ranks);
    Store(options, ranks, product.part);
    ranks.OnFirst([&] { Print(options, ranks, product); });
}

} // namespace

void AddGemmOnRanks(CLI::App& app, Command& chosen, Ranks const& ranks)
{
    auto const options = std::make_shared<Options>();
    CLI::App& gemm = AddCommand(app, "gemm", "The product of two stored dense matrices, and its rate", kFooter);
    AddRequired(gemm, "DB", options->path, "Database, which gets the product, too");
    AddRequired(gemm, "A", options->left, "Number of a dense matrix, as kvomtx db ls shows it");
    AddRequired(gemm, "B", options->right, "Number of another one");
    AddRequired(gemm, "C", options->product, "Number of the product");
    AddFlag(gemm, "--json", options->json, "Print one JSON object");
    SetWork(gemm, chosen, [options, &ranks] { RunGemm(*options, ranks); });
}
