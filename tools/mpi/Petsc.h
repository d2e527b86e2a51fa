#pragma once

#include <exception>
#include <slepceps.h>
#include <string>
#include <utility>
#include <vector>

/// PETSc and SLEPc from here to the end of the object, on all ranks.
///
/// Nothing of theirs is released while an exception passes: releasing is a call that all ranks make, and others may not come to it. The
/// process ends then.
class PetscSession
{
public:
    /// @param options  of the user, as -st_ksp_type cg; they go before what the program chooses
    explicit PetscSession(std::vector<std::string> const& options);
    ~PetscSession();
    PetscSession(PetscSession const&) = delete;
    PetscSession& operator=(PetscSession const&) = delete;

    /// Seconds and calls of a kind of work up to now, by PETSc's own account, as "STMatSolve".
    static std::pair<double, int> Spent(char const* event);
};

/// @throws ToolError kCannot with PETSc's text unless the code is 0
void Check(PetscErrorCode code);

/// Holds one of PETSc's objects.
template<class T, PetscErrorCode (*Destroy)(T*)>
class PetscHolder
{
public:
    PetscHolder() = default;
    PetscHolder(PetscHolder const&) = delete;
    PetscHolder& operator=(PetscHolder const&) = delete;
    ~PetscHolder()
    {
        if (m_object != nullptr && std::uncaught_exceptions() == 0)
            Destroy(&m_object);
    }

    operator T() const noexcept { return m_object; }
    T* New() noexcept { return &m_object; } // for a call that makes it; there is none yet

private:
    T m_object = nullptr;
};

using HeldMat = PetscHolder<Mat, MatDestroy>;
using HeldVec = PetscHolder<Vec, VecDestroy>;
using HeldEps = PetscHolder<EPS, EPSDestroy>;
