#include "OutputFile.h"

#include "Errors.h"
#include "StandardStreams.h"

#include "KVOSrvMtxExceptions.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace
{

bool g_replacesOlder = false;

[[noreturn]] void FailToWrite(std::string const& path, int error)
{
    char const* const advice = error == ENOSPC || error == EDQUOT ? "make room or write elsewhere"
                               : error == ENOENT                  ? "make its folder first"
                                                                  : "choose another place";
    throw ToolError(ExitCode::kUnwritable, path + ": cannot be written: " + std::strerror(error) + "; " + advice);
}

// The file itself behind symbolic links, also one that is not there yet, so that the link survives.
std::string Target(std::string const& path)
{
    constexpr int kMostLinks = 40; // as many as the system follows
    std::filesystem::path target = path;
    std::error_code error;
    for (int k = 0; k < kMostLinks && std::filesystem::is_symlink(target, error); ++k)
        target = target.parent_path() / std::filesystem::read_symlink(target, error);
    return target.string();
}

bool IsSameFile(std::string const& a, std::string const& b)
{
    if (a.empty() || b.empty())
        return false;
    std::error_code error;
    if (std::filesystem::equivalent(a, b, error))
        return true;
    auto const whole = [&](std::string const& path) { return weakly_canonical(std::filesystem::absolute(Target(path), error), error); };
    auto const wholeA = whole(a);
    return !wholeA.empty() && wholeA == whole(b);
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

void OutputFile::ReplaceOlder() noexcept
{
    g_replacesOlder = true;
}

OutputFile::OutputFile(std::string const& path, std::string companion) : m_path(Target(path)), m_companion(std::move(companion))
{
    if (path.empty())
        throw ToolError(ExitCode::kUsage, "an output file has an empty name");
    bool const isStream = path == kStandardStream;
    std::error_code error;
    auto const status = isStream ? std::filesystem::file_status() : std::filesystem::status(m_path, error);
    if (error == std::errc::too_many_symbolic_link_levels)
        FailToWrite(m_path, ELOOP);
    if (std::filesystem::is_directory(status))
        FailToWrite(m_path, EISDIR);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        throw ToolError(ExitCode::kUnwritable, m_path + ": is not a regular file; give a file that can be replaced");
    if (std::filesystem::exists(status) && !g_replacesOlder)
        throw ToolError(ExitCode::kUnwritable, path + ": is there already; give another name, or --force, which replaces it");
    try {
        m_folder = std::make_unique<PrivateFolder>(isStream ? FolderForStreams() : m_path + ".part");
    } catch (std::system_error const& failure) {
        FailToWrite(m_path, failure.code().value());
    }
    m_temporary = (std::filesystem::path(m_folder->Path()) / std::filesystem::path(m_path).filename()).string();
}

void OutputFile::Write(std::function<void(char const* path)> const& write) const
{
    auto const fail = [this] { throw ToolError(ExitCode::kUnwritable, m_path + ": cannot be written; make room or write elsewhere"); };
    try {
        write(m_temporary.c_str());
    } catch (KVOSrvMtxFileWriteFailure const&) {
        fail();
    } catch (KVOSrvMtxOpenFileException const&) {
        fail();
    }
}

void OutputFile::Commit()
{
    if (m_path == kStandardStream)
        return CopyToStandardOutput(m_temporary);
    int const file = open(TemporaryPath().c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || !SyncAndClose(file))
        FailToWrite(m_path, errno);
    std::string const companion = m_path + m_companion;
    int error = 0;
    bool const kept = m_folder->Release([&] {
        if (std::rename(TemporaryPath().c_str(), m_path.c_str()) != 0) {
            error = errno;
            return false;
        }
        if (!m_companion.empty() && unlink(companion.c_str()) != 0 && errno != ENOENT)
            error = errno;
        return true;
    });
    if (error != 0)
        FailToWrite(kept ? companion : m_path, error);
    std::string const folder = std::filesystem::path(m_path).parent_path().string();
    int const directory = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        fsync(directory); // the file is complete with or without it
        close(directory);
    }
}

void RequireSeparateFiles(std::vector<std::string> const& outputs, std::vector<std::string> const& inputs)
{
    for (auto output = outputs.begin(); output != outputs.end(); ++output) {
        for (std::string const& input : inputs)
            if (IsSameFile(*output, input))
                throw ToolError(ExitCode::kUsage, *output + ": is the input " + input + " as well; give the output another name");
        for (auto other = outputs.begin(); other != output; ++other)
            if (IsSameFile(*output, *other))
                throw ToolError(ExitCode::kUsage, *output + ": is named twice as an output; give each output a name of its own");
    }
}
