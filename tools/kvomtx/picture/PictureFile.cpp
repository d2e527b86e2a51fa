#include "PictureFile.h"

#include "Errors.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace
{

PictureKind KindOf(std::string const& path)
{
    std::string ending = std::filesystem::path(path).extension().string();
    std::ranges::transform(ending, ending.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    if (ending == ".png")
        return PictureKind::kPng;
    if (ending == ".svg")
        return PictureKind::kSvg;
    throw ToolError(ExitCode::kUsage, path + ": the ending of a picture is .png or .svg; give it one of them");
}

} // namespace

PictureFile::PictureFile(std::string const& path) : m_kind(KindOf(path)), m_file(path) {}

std::string PictureFile::Folder() const
{
    return std::filesystem::path(m_file.TemporaryPath()).parent_path().string();
}

void PictureFile::Write(std::string_view bytes) const
{
    errno = 0;
    std::FILE* const file = std::fopen(m_file.TemporaryPath().c_str(), "wb");
    bool const written = file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    int error = errno;
    bool const closed = file != nullptr && std::fclose(file) == 0;
    if (written && !closed)
        error = errno;
    if (!written || !closed)
        throw ToolError(ExitCode::kUnwritable,
                        m_file.Path() + ": cannot be written: " + std::strerror(error) + "; make room or write elsewhere");
}
