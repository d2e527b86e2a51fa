#pragma once

#include "Interrupt.h"

#include <string>

/// A file that comes into being as a whole: it is written under a temporary name in the same folder and renamed when it is complete. What
/// stood under its name before stays until then.
class OutputFile
{
public:
    /// Checks that the file can be made and replaced. Does not make it.
    /// @throws ToolError kUnwritable
    explicit OutputFile(std::string const& path);

    /// Where to write; nothing is there yet.
    std::string const& TemporaryPath() const noexcept { return m_temporary.Path(); }
    std::string const& Path() const noexcept { return m_path; }

    /// Brings the file to the disk and gives it its name.
    /// @throws ToolError kUnwritable
    void Commit();

private:
    std::string m_path;
    Removable m_temporary;
};

/// @throws ToolError kUsage when an output is one of the inputs
void RequireOtherFile(std::string const& output, std::string const& input);
