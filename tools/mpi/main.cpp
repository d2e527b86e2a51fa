// The program for many processes: what every rank does first and last.

#include "Commands.h"
#include "Failures.h"
#include "Interrupt.h"
#include "ProviderMemory.h"
#include "Ranks.h"

#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvParallel.h"
#include "ParallelThreads.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <string_view>
#include <unistd.h>

namespace
{

constexpr char kDescription[] = "Natural frequencies and products of stored matrices, shared by the processes of mpirun.\n\n"
                                "  mpirun -n 4 kvomtx-mpi modes k.mtx m.mtx --count 10\n"
                                "  mpirun -n 4 kvomtx-mpi gemm model.sim 2 5 6";
constexpr char kFooter[] =
    "\nExit codes are those of kvomtx: 0 done, 1 the data cannot give what was asked for, 2 wrong command line, 3 an input\n"
    "cannot be read, 4 an output cannot be written, 130 interrupted. kvomtx-mpi COMMAND --help shows each command.";

// A rank is meant for one thread: several ranks on a machine would each take all of its processors.
void LimitProviderThreads()
{
    if (std::getenv("OPENBLAS_NUM_THREADS") != nullptr || std::getenv("OMP_NUM_THREADS") != nullptr)
        return;
    if (auto const set = reinterpret_cast<void (*)(int)>(dlsym(RTLD_DEFAULT, "openblas_set_num_threads")); set != nullptr)
        set(1);
}

// mpirun tells that it was interrupted, and leaves the ranks a second. Rank 0 has what is to be removed; where another one ended before it,
// MPI would end it at once.
void TakeSignals(Ranks const& ranks)
{
    WatchSignals(ranks.IsFirst() ? 200 : 700, false);
}

bool IsNumber(char const* word)
{
    return word[0] == '-' && (std::isdigit(static_cast<unsigned char>(word[1])) || word[1] == '.');
}

// Takes the options of PETSc and SLEPc, with their values, out of the command line.
std::vector<std::string> TakeSolverOptions(int argc, char** argv, std::vector<char const*>& others)
{
    std::vector<std::string> options;
    for (int i = 0; i < argc; ++i) {
        std::string_view const word = argv[i];
        if (!word.starts_with("-st_") && !word.starts_with("-eps_")) {
            others.push_back(argv[i]);
            continue;
        }
        options.emplace_back(word);
        if (i + 1 < argc && (argv[i + 1][0] != '-' || IsNumber(argv[i + 1])))
            options.emplace_back(argv[++i]);
    }
    return options;
}

void Run(int argc, char** argv, Ranks const& ranks)
{
    static Ranks const* s_ranks = nullptr;
    static std::vector<std::string> s_solverOptions;
    s_ranks = &ranks;
    std::vector<char const*> words;
    Command command;
    ranks.Together([&] {
        TakeSignals(ranks);
        s_solverOptions = TakeSolverOptions(argc, argv, words);
        command = ParseCommandLine(
            static_cast<int>(words.size()), words.data(), "kvomtx-mpi", kDescription, kFooter,
            [](CLI::App& app, Command& chosen) {
                AddModesOnRanks(app, chosen, *s_ranks, s_solverOptions);
                AddGemmOnRanks(app, chosen, *s_ranks);
            },
            ranks.IsFirst());
    });
    if (!ranks.IsFirst() && std::freopen("/dev/null", "w", stdout) == nullptr) // what all would print, as the help, rank 0 prints
        std::fclose(stdout);
    struct Library {
        Library() { KVOMtxLinearAlgebra_initialize(tally); }
        ~Library() { KVOMtxLinearAlgebra_finalize(tally); }
        int tally = 0;
    } const library;
    ParallelThreads threads(ThreadsForTasks());
    KVOSrvParallel const parallel(ParallelThreads::Run, &threads, threads.Count());
    command();
    ranks.OnFirst(RequirePrinted);
}

} // namespace

int main(int argc, char** argv)
{
    FitProviderThreads(argv);
    LimitProviderThreads();
    Ranks const ranks;
    try {
        Run(argc, argv, ranks);
        return 0;
    } catch (...) {
        return ranks.End();
    }
}
