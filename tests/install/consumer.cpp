// A program of somebody else: it sees the installed headers and libraries only.

#include "KVOFortran.h"
#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvTimer.h"
#include "KVOSrvUtilities.h"

#include <cmath>
#include <cstdio>

int main()
{
    int tally = 0;
    KVOMtxLinearAlgebra_initialize(tally);

    double a[] = {4.0, 1.0, 1.0, 3.0};
    double b[] = {1.0, 2.0};
    int pivots[2];
    {
        KVOSrvMatrix stiffness(2, 2, a, true, false);
        KVOSrvMatrix load(2, 1, b, false, false);
        stiffness.Factorize(pivots);
        stiffness.ForwardBackwardPass(pivots, load, false);
    }
    bool const solved = std::fabs(b[0] - 1.0 / 11.0) < 1e-15 && std::fabs(b[1] - 7.0 / 11.0) < 1e-15;

    // The class crosses the border of the library and is caught as itself.
    bool caught = false;
    try {
        double zero[] = {0.0};
        KVOSrvMatrix(1, 1, zero, false, true).Factorize(pivots);
    } catch (KVOSrvMtxDivByZero const& exception) {
        caught = exception.ErrorNumber() == 218;
    }

    // One timer in the process: what is made here is what the library's entry point reads.
    omi_Singleton<KVOSrvTimer>::Instance().CreateTimer();
    double seconds = -1.0;
    KVOSRVGETWALLTIME(&seconds);

    KVOMtxLinearAlgebra_finalize(tally);
    bool const ok = solved && caught && seconds >= 0.0 && tally == 0;
    std::printf("consumer: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
