#pragma once

#include "PrivateFolder.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A file that comes into being as a whole: it is written in a private folder beside its place and put there when it is complete. What
/// stood there before stays until then. A file named "-" is sent to the standard output instead.
class OutputFile
{
public:
    /// From here on files that are there may be replaced, which the user has to ask for: an older result may have taken a night.
    static void ReplaceOlder() noexcept;

    /// Checks that the file can be made and, if it is there, may be replaced. Does not make it. A command does so for all its outputs
    /// before it reads and computes.
    /// @param companion  "<path><companion>" belongs to the file that is replaced, and goes when that does; empty: there is none such
    /// @throws ToolError kUnwritable
    explicit OutputFile(std::string const& path, std::string companion = {});

    /// Where to write; nothing is there yet.
    std::string const& TemporaryPath() const noexcept { return m_temporary; }
    std::string const& Path() const noexcept { return m_path; }

    /// Lets the library write: write(TemporaryPath()).
    /// @throws ToolError kUnwritable, with the file's own name, when the library says that a file cannot be written
    void Write(std::function<void(char const* path)> const& write) const;

    /// Brings the file to the disk and gives it its name.
    /// @throws ToolError kUnwritable
    /// @throws Interrupted see Removable::Release()
    void Commit();

private:
    std::string m_path;
    std::string m_companion;
    std::unique_ptr<PrivateFolder> m_folder;
    std::string m_temporary;
};

/// By whatever names they go. Empty names are left out.
/// @throws ToolError kUsage when two outputs are one file or an output is one of the inputs
void RequireSeparateFiles(std::vector<std::string> const& outputs, std::vector<std::string> const& inputs);
