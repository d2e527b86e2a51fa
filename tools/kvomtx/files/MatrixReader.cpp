#include "MatrixReader.h"

#include "Database.h"
#include "Errors.h"
#include "FileKind.h"
#include "Interrupt.h"
#include "MatrixName.h"
#include "Progress.h"

#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Says why a file cannot be opened, before a reader says only that it cannot.
void RequireReadable(std::string const& path)
{
    int const file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status {
    };
    int const error = file < 0 || fstat(file, &status) != 0 ? errno : 0;
    if (file >= 0)
        close(file);
    if (error != 0)
        throw ToolError(ExitCode::kUnreadable, path + ": cannot be read: " + std::strerror(error) +
                                                   (error == ENOENT ? "; check the name" : "; check its permissions"));
    if (!S_ISREG(status.st_mode))
        throw ToolError(ExitCode::kUnreadable, path + ": is not a regular file; give a matrix file");
}

// What to expect of a file that takes minutes as text.
std::string SizeOfLarge(std::string const& path)
{
    constexpr double kLarge = 2e9;
    std::error_code error;
    auto const bytes = static_cast<double>(std::filesystem::file_size(path, error));
    char text[48] = "";
    if (!error && bytes >= kLarge)
        std::snprintf(text, sizeof text, ", %.1f GB, which may take minutes", bytes * 1e-9);
    return text;
}

std::unique_ptr<KVOSrvSparseMatrix> ReadFromDatabase(MatrixName const& name)
{
    InputDatabase const database(name.path);
    KVOSimDistributionID const id = database.Find(name, MatrixKind::kSparse);
    std::string const place = name.path + ":" + std::to_string(id.Index());
    try {
        if (KVOSrvUtilities::IsDenseMatrix(KVOSimDistribution(id)))
            throw ToolError(ExitCode::kUnreadable,
                            place + ": is a dense matrix, a sparse one is needed here; kvomtx db export makes a file of it");
        return std::make_unique<KVOSrvSparseMatrix>(id);
    } catch (KVOSrvMtxIllegalInput const&) {
        throw ToolError(ExitCode::kUnreadable, place + ": is no sparse matrix of doubles; kvomtx db ls shows what it is");
    }
}

std::unique_ptr<KVOSrvSparseMatrix> Import(MatrixName const& name)
{
    try {
        return KVOSrvMatrixFile::Read(name.path.c_str(), name.format, name.variable.c_str(), name.part);
    } catch (KVOSrvMtxMalformedFile const& fault) {
        std::string const kind = RecogniseOtherKind(name.path, name.format);
        throw ToolError(ExitCode::kUnreadable,
                        name.text + ": " + fault.Place().c_str() + ": " +
                            (kind.empty() ? fault.Expected() : "expected a file of " + DescribeFormat(name.format) + ", but " + kind));
    } catch (KVOSrvMtxIllegalInput const& refused) {
        std::string const text = refused.AsString().c_str();
        if (std::size_t const limit = text.find("the memory limit"); limit != std::string::npos)
            throw ToolError(ExitCode::kCannot, name.text + ": " + text.substr(limit));
        throw ToolError(ExitCode::kUnreadable, name.text + ": more entries than a matrix can have (2147483647); split the model");
    }
}

} // namespace

std::unique_ptr<KVOSrvSparseMatrix> ReadMatrix(MatrixName const& name)
{
    if (name.format == MatrixFormat::kNodes || name.format == MatrixFormat::kLines)
        throw ToolError(ExitCode::kUsage, name.path + ": " + DescribeFormat(name.format) +
                                              " is written for other programs and cannot be read; give the file it was made from");
    RequireReadable(name.path);
    CheckInterrupt();
    Progress const progress("reading " + name.path + SizeOfLarge(name.path));
    auto matrix = name.format == MatrixFormat::kDatabase ? ReadFromDatabase(name) : Import(name);
    CheckInterrupt();
    return matrix;
}

std::unique_ptr<KVOSrvSparseMatrix> ReadMatrix(std::string const& text, std::string const& format)
{
    return ReadMatrix(ParseMatrixName(text, format, true));
}
