#pragma once

#include "Tool.h"

#include <algorithm>
#include <cstdlib>

/// Runs of kvomtx-mpi in the folder of a Tool.
class RankTool : public Tool
{
public:
    RankTool()
    {
        // As root and on any machine, in the tests only. Ranks that wait leave the processor to the others.
        inChild = [] {
            for (char const* name :
                 {"OMPI_ALLOW_RUN_AS_ROOT", "OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "OMPI_MCA_mpi_yield_when_idle", "OPENBLAS_NUM_THREADS"})
                setenv(name, "1", 1);
            // Where a rank has ended with another code than 0 mpirun waits so many seconds before it kills the others.
            setenv("OMPI_MCA_odls_base_sigkill_timeout", "0", 1);
        };
    }

    Outcome OnRanks(int ranks, std::vector<std::string> const& arguments)
    {
        return Apart(std::vector<std::vector<std::string>>(1, {"-n", std::to_string(ranks)}), arguments);
    }
    /// Each group of ranks started with options of its own for mpirun.
    Outcome Apart(std::vector<std::vector<std::string>> const& groups, std::vector<std::string> const& arguments)
    {
        return Wait(StartApart(groups, arguments));
    }
    pid_t StartApart(std::vector<std::vector<std::string>> const& groups, std::vector<std::string> const& arguments)
    {
        std::vector<std::string> const before = program;
        program = {KVO_MPIRUN, "-q", "--oversubscribe"};
        for (auto group = groups.begin(); group != groups.end(); ++group) {
            if (group != groups.begin())
                program.emplace_back(":");
            program.insert(program.end(), group->begin(), group->end());
            program.emplace_back(KVOMTX_MPI);
            program.insert(program.end(), arguments.begin(), arguments.end());
        }
        pid_t const child = Start({});
        program = before;
        return child;
    }
    nlohmann::json JsonOnRanks(int ranks, std::vector<std::string> arguments)
    {
        arguments.emplace_back("--json");
        if (arguments[0] == "modes")
            arguments.emplace_back("--force");
        Outcome const outcome = OnRanks(ranks, arguments);
        if (outcome.code != 0)
            throw std::runtime_error("exit code " + std::to_string(outcome.code) + ": " + outcome.err);
        return nlohmann::json::parse(outcome.out);
    }
};

/// The lines of the program; those of mpirun do not count.
inline std::vector<std::string> OwnLines(std::string const& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        if (line.starts_with("kvomtx-mpi: "))
            lines.push_back(line);
    return lines;
}
