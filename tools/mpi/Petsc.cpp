#include "Petsc.h"

#include "Errors.h"

#include <cstdio>

namespace
{

char g_text[512]; // of the first failure

// PETSc goes on to report each caller of what has failed.
PetscErrorCode Remember(MPI_Comm, int, char const*, char const*, PetscErrorCode code, PetscErrorType type, char const* text, void*)
{
    if (type == PETSC_ERROR_INITIAL)
        std::snprintf(g_text, sizeof g_text, "%s", text);
    return code;
}

// The solver of linear systems, which options may replace. MUMPS tells the inertia of a factor only where its last part is not
// ScaLAPACK's (13), and finds null pivots on request (24): those that are less than 1e-12 of the scaled matrix are rounding error. A
// working space half larger than expected (14) is for the exchanges of rows of indefinite matrices.
constexpr char const* kDefaults[] = {"-st_type",
                                     "sinvert",
                                     "-st_ksp_type",
                                     "preonly",
                                     "-st_pc_type",
                                     "cholesky",
                                     "-st_pc_factor_mat_solver_type",
                                     "mumps",
                                     "-st_mat_mumps_icntl_13",
                                     "1",
                                     "-st_mat_mumps_icntl_14",
                                     "50",
                                     "-st_mat_mumps_icntl_24",
                                     "1",
                                     "-st_mat_mumps_cntl_3",
                                     "1e-12"};

} // namespace

PetscSession::PetscSession(std::vector<std::string> const& options)
{
    // Without files of options that lie about, and without handlers of signals: those of the program stay.
    std::vector<std::string> words{"kvomtx-mpi", "-skip_petscrc", "-no_signal_handler"};
    words.insert(words.end(), std::begin(kDefaults), std::end(kDefaults));
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    int count = static_cast<int>(words.size());
    char** arguments = pointers.data();
    if (SlepcInitialize(&count, &arguments, nullptr, nullptr) != 0)
        throw ToolError(ExitCode::kCannot, "PETSc and SLEPc cannot be started");
    Check(PetscPushErrorHandler(Remember, nullptr));
    Check(PetscLogDefaultBegin());
}

PetscSession::~PetscSession()
{
    if (std::uncaught_exceptions() == 0)
        SlepcFinalize();
}

std::pair<double, int> PetscSession::Spent(char const* event)
{
    PetscLogEvent id = -1;
    PetscEventPerfInfo info{};
    Check(PetscLogEventGetId(event, &id));
    if (id >= 0)
        Check(PetscLogEventGetPerfInfo(PETSC_DETERMINE, id, &info));
    return {info.time, info.count};
}

void Check(PetscErrorCode code)
{
    if (code != 0)
        throw ToolError(ExitCode::kCannot, std::string("the solver failed: ") + (g_text[0] != '\0' ? g_text : "PETSc does not say why"));
}
