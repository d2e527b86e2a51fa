#pragma once

#include "OutputFile.h"

#include <string>
#include <string_view>

enum class PictureKind { kPng, kSvg };

/// An output that is a picture.
class PictureFile
{
public:
    /// Checks that the picture can be written there.
    /// @throws ToolError kUsage when the ending is neither .png nor .svg, in capitals or small letters; kUnwritable
    explicit PictureFile(std::string const& path);

    PictureKind Kind() const noexcept { return m_kind; }
    /// A folder that goes with this object.
    std::string Folder() const;

    /// Writes these bytes under the temporary name.
    /// @throws ToolError kUnwritable
    void Write(std::string_view bytes) const;
    /// See OutputFile::Commit().
    void Commit() { m_file.Commit(); }

private:
    PictureKind m_kind;
    OutputFile m_file;
};
