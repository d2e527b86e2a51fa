// kvomtx gemm and kvomtx sparse-times-dense.

#include "Commands.h"

#include "DenseOperand.h"
#include "Errors.h"
#include "FullMatrix.h"
#include "Interrupt.h"
#include "MatrixName.h"
#include "MatrixReader.h"
#include "Progress.h"
#include "ProviderMemory.h"
#include "ScratchFolder.h"
#include "Source.h"
#include "StatedBytes.h"
#include "Validators.h"

#include "KVOSrvProductMemory.h"
#include "KVOSrvSparseMatrix.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace
{

constexpr char kSparseFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx sparse-times-dense k.mtx k-modes.sim:2 -o forces.sim\n\n"
    "Multiplies through the library, out of core. X is a dense matrix of a database, or a matrix file, which is brought\n"
    "into a scratch database first. The product is matrix 0 of the database that is written. The rate counts two\n"
    "operations an entry and column, and the bytes of X and of the product; reading files is not in it.";
constexpr char kGemmFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx gemm a.dense b.dense -o c.sim\n"
    "  kvomtx gemm k-modes.sim:2 forces.sim --transpose -o reduced.sim\n\n"
    "Multiplies two stored matrices through the library, block by block, out of core. A matrix file is brought into a\n"
    "scratch database first. The product is matrix 0 of the database that is written. The rate counts two operations a\n"
    "term; reading files is not in it.";

struct Options {
    std::string left;
    std::string right;
    std::string output;
    std::string format;
    std::string scratch;
    std::string memory; // empty: half of what the process may have
    bool transpose = false;
    bool checksums = false;
    bool json = false;
    int repeat = 1;
};

/// What was multiplied, how often, and how long the fastest repetition took.
struct Rate {
    int rows = 0;
    int columns = 0;
    double operations = 0.0; // of one repetition
    double bytes = 0.0;
    double seconds = 0.0;
};

double FastestOf(Options const& options, std::function<void()> const& multiply)
{
    KVOSrvProductMemory const limit(StatedBytes(options.memory));
    Progress progress("multiplying");
    double fastest = 0.0;
    for (int k = 0; k < options.repeat; ++k) {
        auto const begin = std::chrono::steady_clock::now();
        multiply();
        std::chrono::duration<double> const elapsed = std::chrono::steady_clock::now() - begin;
        fastest = k == 0 ? elapsed.count() : std::min(fastest, elapsed.count());
        progress.Set((k + 1.0) / options.repeat);
    }
    return fastest;
}

void Print(Options const& options, Rate const& rate)
{
    double const seconds = std::max(rate.seconds, 1e-9); // what the clock tells at best
    if (options.json) {
        nlohmann::ordered_json object;
        object["output"] = options.output;
        object["rows"] = rate.rows;
        object["columns"] = rate.columns;
        object["seconds"] = rate.seconds;
        object["gigaflops"] = rate.operations / seconds * 1e-9;
        object["gigabytes_per_second"] = rate.bytes / seconds * 1e-9;
        std::printf("%s\n", object.dump(4, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
        return;
    }
    std::printf("%s: %d x %d in %.3g s: %.3g Gflop/s, %.3g GB/s of stored operands%s\n", options.output.c_str(), rate.rows, rate.columns,
                rate.seconds, rate.operations / seconds * 1e-9, rate.bytes / seconds * 1e-9,
                options.repeat > 1 ? " (the fastest repetition)" : "");
}

std::string Size(int rows, int columns)
{
    return std::to_string(rows) + " x " + std::to_string(columns);
}

void RequireProduct(Options const& options, int leftRows, int leftColumns, KVOSrvDenseMatrix const& right)
{
    if ((options.transpose ? leftRows : leftColumns) == right.NumberOfRows())
        return;
    std::string const left = Size(leftRows, leftColumns) + (options.transpose ? ", transposed," : "");
    throw ToolError(ExitCode::kCannot, options.left + " and " + options.right + ": " + left + " cannot be multiplied by " +
                                           Size(right.NumberOfRows(), right.NumberOfColumns()) + "; the inner sizes must be equal");
}

double Bytes(KVOSrvDenseMatrix const& matrix)
{
    return 8.0 * matrix.NumberOfRows() * matrix.NumberOfColumns();
}

void CheckOutputs(Options const& options)
{
    auto const pathOf = [&](std::string const& input) { return ParseMatrixName(input, options.format, true).path; };
    RequireSeparateFiles({options.output}, {pathOf(options.left), pathOf(options.right)});
}

std::string DescribeProduct(Options const& options)
{
    auto const source = [&](std::string const& operand) { return DescribeSource(ParseMatrixName(operand, options.format, true)); };
    return source(options.left) + (options.transpose ? ", transposed," : "") + " times " + source(options.right);
}

void RunSparseTimesDense(Options const& options)
{
    CheckOutputs(options);
    RequireProviderMemory();
    OutputDatabase database(options.output);
    ScratchFolder const scratch(options.scratch.empty() ? ScratchFolder::FolderOf(options.output) : options.scratch);
    auto const sparse = ReadMatrix(options.left, options.format);
    DenseOperand const dense(options.right, options.format);
    RequireProduct(options, sparse->NumberOfRows(), sparse->NumberOfColumns(), dense.Matrix());
    Rate rate{options.transpose ? sparse->NumberOfColumns() : sparse->NumberOfRows(), dense.Matrix().NumberOfColumns()};
    if (rate.rows == 0)
        throw ToolError(ExitCode::kCannot, options.left + ": has no rows; there is nothing to multiply");
    auto const product = MakeProduct(database, rate.rows, rate.columns, DescribeProduct(options), options.checksums);
    rate.seconds = FastestOf(options, [&] { sparse->MultiplyDense(dense.Matrix(), *product, options.transpose); });
    rate.operations = 2.0 * static_cast<double>(FullMatrix(*sparse).Rows().entries) * rate.columns;
    rate.bytes = Bytes(dense.Matrix()) + Bytes(*product);
    database.Commit();
    Print(options, rate);
}

void RunGemm(Options const& options)
{
    CheckOutputs(options);
    RequireProviderMemory();
    OutputDatabase database(options.output);
    ScratchFolder const scratch(options.scratch.empty() ? ScratchFolder::FolderOf(options.output) : options.scratch);
    DenseOperand const left(options.left, options.format), right(options.right, options.format);
    KVOSrvDenseMatrix const &a = left.Matrix(), &b = right.Matrix();
    RequireProduct(options, a.NumberOfRows(), a.NumberOfColumns(), b);
    Rate rate{options.transpose ? a.NumberOfColumns() : a.NumberOfRows(), b.NumberOfColumns()};
    auto const product = MakeProduct(database, rate.rows, rate.columns, DescribeProduct(options), options.checksums);
    rate.seconds = FastestOf(options, [&] {
        if (options.transpose)
            a.TransposeMultiply(&b, product.get(), 0);
        else
            a.Multiply(b, *product);
    });
    rate.operations = 2.0 * rate.rows * b.NumberOfRows() * rate.columns;
    rate.bytes = Bytes(a) + Bytes(b) + Bytes(*product);
    database.Commit();
    Print(options, rate);
}

void AddProductOptions(CLI::App& command, Options& options)
{
    AddRequired(command, "-o,--output", options.output, "Database to write", RequireName);
    AddFlag(command, "-t,--transpose", options.transpose, "Multiply by the transposed first operand");
    AddOption(command, "--repeat", options.repeat, "Multiply so often; the fastest counts (1)", RequireAtLeastOne);
    AddMemory(command, options.memory, "the product");
    AddOption(command, "--scratch", options.scratch, "Folder for scratch files (that of the output)", RequireName);
    AddOption(command, "--format", options.format,
              "Format of the operands, when nothing in them or their endings tells it (see convert --help)");
    AddFlag(command, "--checksums", options.checksums, "Keep checksums of the product's values, for db check");
    AddFlag(command, "--json", options.json, "Print one JSON object");
    AddForce(command);
}

} // namespace

void AddProductCommands(CLI::App& app, Command& chosen)
{
    auto const options = std::make_shared<Options>();
    CLI::App& sparse =
        AddCommand(app, "sparse-times-dense", "The product of a sparse and a stored dense matrix, and its rate", kSparseFooter);
    AddRequired(sparse, "S", options->left, "Sparse matrix: a matrix file or FILE.sim:ID");
    AddRequired(sparse, "X", options->right, "Dense matrix");
    AddProductOptions(sparse, *options);
    SetWork(sparse, chosen, [options] { RunSparseTimesDense(*options); });

    CLI::App& gemm = AddCommand(app, "gemm", "The product of two stored dense matrices, and its rate", kGemmFooter);
    AddRequired(gemm, "A", options->left, "Dense matrix: FILE.sim:ID or a matrix file");
    AddRequired(gemm, "B", options->right, "Dense matrix");
    AddProductOptions(gemm, *options);
    SetWork(gemm, chosen, [options] { RunGemm(*options); });
}
