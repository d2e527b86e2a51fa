#include "OutputFile.h"

#include "Errors.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace
{

[[noreturn]] void FailToWrite(std::string const& path, int error)
{
    char const* const advice = error == ENOSPC || error == EDQUOT ? "make room or write elsewhere"
                               : error == ENOENT                  ? "make its folder first"
                                                                  : "choose another place";
    throw ToolError(ExitCode::kUnwritable, path + ": cannot be written: " + std::strerror(error) + "; " + advice);
}

// The file itself behind symbolic links, so that the link survives.
std::string Target(std::string const& path)
{
    std::error_code error;
    if (!std::filesystem::is_symlink(path, error))
        return path;
    auto const target = std::filesystem::weakly_canonical(path, error);
    return error ? path : target.string();
}

bool SyncAndClose(int file)
{
    bool const synced = fsync(file) == 0 || errno == EINVAL; // EINVAL: a file system that cannot
    int const error = errno;
    bool const closed = close(file) == 0;
    if (!synced)
        errno = error;
    return synced && closed;
}

} // namespace

OutputFile::OutputFile(std::string const& path) : m_path(Target(path)), m_temporary(m_path + ".part" + std::to_string(getpid()))
{
    if (path.empty())
        throw ToolError(ExitCode::kUsage, "an output file has an empty name");
    std::error_code error;
    auto const status = std::filesystem::status(m_path, error);
    if (std::filesystem::is_directory(status))
        FailToWrite(m_path, EISDIR);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        throw ToolError(ExitCode::kUnwritable, m_path + ": is not a regular file; give a file that can be replaced");
    int const file = open(TemporaryPath().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0)
        FailToWrite(m_path, errno);
    close(file);
    unlink(TemporaryPath().c_str());
}

void OutputFile::Commit()
{
    int const file = open(TemporaryPath().c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || !SyncAndClose(file))
        FailToWrite(m_path, errno);
    if (!m_temporary.Release([&] { return std::rename(TemporaryPath().c_str(), m_path.c_str()) == 0; }))
        FailToWrite(m_path, errno);
    std::string const folder = std::filesystem::path(m_path).parent_path().string();
    int const directory = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        fsync(directory); // the file is complete with or without it
        close(directory);
    }
}

void RequireOtherFile(std::string const& output, std::string const& input)
{
    std::error_code error;
    if (std::filesystem::equivalent(output, input, error))
        throw ToolError(ExitCode::kUsage, output + ": is the input " + input + " as well; give the output another name");
}
