#include "FileMark.h"

#include "Errors.h"
#include "Ranks.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace
{

using Mark = std::array<char, 32>;
constexpr off_t kPlaceOfMark = 64;

Mark ReadMark(std::string const& path)
{
    Mark mark{};
    int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ssize_t const bytes = file < 0 ? -1 : pread(file, mark.data(), mark.size(), kPlaceOfMark);
    int const error = errno;
    if (file >= 0)
        close(file);
    if (bytes < 0)
        throw ToolError(ExitCode::kUnreadable, path + ": cannot be read: " + std::strerror(error) +
                                                   "; all ranks need it under this name, in a folder that they share");
    return mark; // of a file that is none of a database whatever stands there: opening it tells
}

} // namespace

void RequireOneFile(Ranks const& ranks, std::string const& path)
{
    Mark own{}, first{};
    ranks.Together([&] { own = ReadMark(path); });
    first = own;
    ranks.Share(first.data(), first.size());
    ranks.Together([&] {
        if (own != first)
            throw ToolError(ExitCode::kUnreadable, path + ": is another file, or in another state, than for rank 0; all ranks need one "
                                                          "file under this name, in a folder that they share");
    });
}
