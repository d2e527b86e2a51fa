#pragma once

#include "Interrupt.h"

#include <string>
#include <vector>

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
    /// @throws Interrupted see Removable::Release()
    void Commit();

private:
    std::string m_path;
    Removable m_temporary;
};

/// By whatever names they go. Empty names are left out.
/// @throws ToolError kUsage when two outputs are one file or an output is one of the inputs
void RequireSeparateFiles(std::vector<std::string> const& outputs, std::vector<std::string> const& inputs);
