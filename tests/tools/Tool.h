#pragma once

#include "KVOSrvSparseMatrix.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

/// How a run of the program ended.
struct Outcome {
    int code;        ///< exit code, or minus the signal that ended it
    std::string out; ///< standard output
    std::string err; ///< error output
};

/// Runs of kvomtx in a folder of its own.
class Tool
{
public:
    std::string operator/(std::string const& name) const { return m_folder / ("work/" + name); }
    Tool() { std::filesystem::create_directory(m_folder / "work"); }

    /// What the started process does in the folder before it becomes the program, for instance to limit itself.
    std::function<void()> inChild = [] {};

    /// What is started, with its first arguments.
    std::vector<std::string> program{KVOMTX_PROGRAM};

    /// Starts the program and returns its process.
    /// @param fileLimit  bytes that a file may grow to; 0: any
    /// @param output     its standard output; -1: what Wait() returns
    pid_t Start(std::vector<std::string> const& arguments, rlim_t fileLimit = 0, int output = -1) const
    {
        std::vector<char*> words;
        for (std::string const& word : program)
            words.push_back(const_cast<char*>(word.c_str()));
        for (std::string const& argument : arguments)
            words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        pid_t const child = fork();
        if (child != 0)
            return child;
        Redirect(STDOUT_FILENO, m_folder / "out");
        Redirect(STDERR_FILENO, m_folder / "err");
        if (output >= 0)
            dup2(output, STDOUT_FILENO);
        if (fileLimit > 0) {
            rlimit const limit{fileLimit, fileLimit};
            setrlimit(RLIMIT_FSIZE, &limit);
        }
        if (chdir((m_folder / "work").c_str()) == 0) {
            inChild();
            execv(words[0], words.data());
        }
        _exit(127);
    }

    Outcome Wait(pid_t child) const
    {
        int status = 0;
        if (waitpid(child, &status, 0) != child)
            throw std::runtime_error("the program cannot be waited for");
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), ReadFile(m_folder / "out"), ReadFile(m_folder / "err")};
    }

    Outcome operator()(std::vector<std::string> const& arguments, rlim_t fileLimit = 0) const { return Wait(Start(arguments, fileLimit)); }

    /// Runs a command that must succeed, and replaces what earlier ones have written.
    std::string Do(std::vector<std::string> arguments) const
    {
        for (char const* writes : {"convert", "export", "gemm", "make-brick", "modes", "shape", "sparse-times-dense", "spy"})
            if (std::ranges::find(arguments, writes) != arguments.end()) {
                arguments.emplace_back("--force");
                break;
            }
        Outcome const outcome = (*this)(arguments);
        if (outcome.code != 0 || !outcome.err.empty())
            throw std::runtime_error("exit code " + std::to_string(outcome.code) + ": " + outcome.err);
        return outcome.out;
    }
    nlohmann::json Json(std::vector<std::string> arguments) const
    {
        arguments.push_back("--json");
        return nlohmann::json::parse(Do(arguments));
    }

    /// The names of the files in the folder, with their contents.
    std::map<std::string, std::string> Files() const
    {
        std::map<std::string, std::string> files;
        for (auto const& entry : std::filesystem::directory_iterator(m_folder / "work"))
            files[entry.path().filename()] = entry.is_regular_file() ? ReadFile(entry.path()) : "no file";
        return files;
    }

private:
    static void Redirect(int stream, std::string const& path)
    {
        int const file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, stream);
        close(file);
    }

    TemporaryFolder m_folder;
};

inline std::string Data(std::string const& name)
{
    return KVOMTX_DATA "/" + name;
}

/// A Matrix Market file as the library reads it: the entries by (row, column), from 0; both triangles of a symmetric one.
struct MarketFile {
    explicit MarketFile(std::string const& path)
    {
        auto const matrix = KVOSrvSparseMatrix::ReadMatrixMarket(path.c_str());
        int count = 0;
        std::unique_ptr<KVOSrvSparseMatrixEntry[]> const list(matrix->GetEntries(count));
        rows = matrix->NumberOfRows();
        columns = matrix->NumberOfColumns();
        for (int k = 0; k < count; ++k)
            entries[{list[k].row, list[k].column}] = list[k].value;
    }
    double At(int row, int column) const { return entries.contains({row, column}) ? entries.at({row, column}) : 0.0; }

    int rows = 0;
    int columns = 0;
    std::map<std::pair<int, int>, double> entries;

    /// The product with a vector.
    std::vector<double> Times(std::vector<double> const& x) const
    {
        std::vector<double> y(static_cast<std::size_t>(rows));
        for (auto const& [place, value] : entries)
            y[static_cast<std::size_t>(place.first)] += value * x[static_cast<std::size_t>(place.second)];
        return y;
    }
    std::vector<double> Column(int column) const
    {
        std::vector<double> x;
        for (int row = 0; row < rows; ++row)
            x.push_back(At(row, column));
        return x;
    }
};
