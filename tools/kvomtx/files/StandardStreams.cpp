#include "StandardStreams.h"

#include "Errors.h"
#include "Interrupt.h"
#include "PrivateFolder.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace
{

constexpr std::size_t kPiece = std::size_t{1} << 18;

[[noreturn]] void Fail(ExitCode code, char const* what, char const* advice)
{
    throw ToolError(code, std::string(what) + ": " + std::strerror(errno) + advice);
}

struct Descriptor {
    int number;
    ~Descriptor() { close(number); }
};

// @return 0 at the end
std::size_t ReadPiece(int from, std::vector<char>& piece, char const* what)
{
    ssize_t got = 0;
    do {
        CheckInterrupt();
        got = read(from, piece.data(), piece.size());
    } while (got < 0 && errno == EINTR);
    if (got < 0)
        Fail(ExitCode::kUnreadable, what, "; give a matrix file");
    return static_cast<std::size_t>(got);
}

void WritePiece(int to, char const* data, std::size_t bytes, char const* what)
{
    while (bytes > 0) {
        ssize_t const written = write(to, data, bytes);
        if (written < 0 && errno != EINTR)
            Fail(ExitCode::kUnwritable, what, "; make room or write elsewhere");
        if (written > 0) {
            data += written;
            bytes -= static_cast<std::size_t>(written);
        }
    }
}

/// The file with what came.
class Spool
{
public:
    Spool() : m_path((std::filesystem::path(m_folder.Path()) / "standard input").string())
    {
        Descriptor const file{open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)};
        if (file.number < 0)
            Fail(ExitCode::kUnwritable, "the standard input cannot be kept in a file", "; name another folder by TMPDIR");
        std::vector<char> piece(kPiece);
        while (std::size_t const got = ReadPiece(STDIN_FILENO, piece, "the standard input cannot be read"))
            WritePiece(file.number, piece.data(), got, "the standard input cannot be kept in a file");
    }
    std::string const& Path() const noexcept { return m_path; }

private:
    PrivateFolder m_folder{FolderForStreams()};
    std::string m_path;
};

} // namespace

std::string const& StandardInputFile()
try {
    static Spool const s_spool;
    return s_spool.Path();
} catch (std::system_error const& failure) {
    throw ToolError(ExitCode::kUnwritable,
                    std::string("the standard input cannot be kept in a file: ") + failure.what() + "; name another folder by TMPDIR");
}

std::string FolderForStreams()
{
    return (std::filesystem::temp_directory_path() / "kvomtx-scratch-").string();
}

void CopyToStandardOutput(std::string const& path)
{
    constexpr char kWhat[] = "the standard output cannot be written";
    Descriptor const file{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    std::vector<char> piece(kPiece);
    while (std::size_t const got = ReadPiece(file.number, piece, kWhat))
        WritePiece(STDOUT_FILENO, piece.data(), got, kWhat);
}
