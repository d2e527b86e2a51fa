// BLAC_DGEMM2: its checks, and the call of the kernel library that is linked in.

#include "KVOFortran.h"
#include "gemm_kernel_choice.h"
#include "provider.h"

#include <algorithm>
#include <string_view>

namespace
{

constexpr std::string_view kRoutine = "DGEMM ";

bool Is(char letter, char upperCase)
{
    return letter == upperCase || letter == upperCase + ('a' - 'A');
}

bool NamesTransposition(char trans)
{
    return Is(trans, 'N') || Is(trans, 'T') || Is(trans, 'C');
}

// The position of the first wrong argument, 0 if there is none; the positions and their order are the reference routine's.
int WrongArgument(char transa, char transb, int m, int n, int k, int lda, int ldb, int ldc)
{
    if (!NamesTransposition(transa))
        return 1;
    if (!NamesTransposition(transb))
        return 2;
    if (m < 0)
        return 3;
    if (n < 0)
        return 4;
    if (k < 0)
        return 5;
    if (lda < std::max(1, Is(transa, 'N') ? m : k))
        return 8;
    if (ldb < std::max(1, Is(transb, 'N') ? k : n))
        return 10;
    return ldc < std::max(1, m) ? 13 : 0;
}

} // namespace

extern "C" void BLAC_DGEMM2(char const* transa, char const* transb, int const* m, int const* n, int const* k, double const* alpha,
                            double const* a, int const* lda, double const* b, int const* ldb, double const* beta, double* c, int const* ldc)
{
    int const wrong = WrongArgument(*transa, *transb, *m, *n, *k, *lda, *ldb, *ldc);
    if (wrong != 0) {
        xerbla_(kRoutine.data(), &wrong, kRoutine.size());
        return;
    }
    if (*m == 0 || *n == 0 || ((*alpha == 0.0 || *k == 0) && *beta == 1.0))
        return;

    kvo_builtin_dgemm(blac::PlanGemm(KVOBasProcessor::This(), *m, *n, *k), !Is(*transa, 'N'), !Is(*transb, 'N'), *m, *n, *k, *alpha, a,
                      *lda, b, *ldb, *beta, c, *ldc);
}
