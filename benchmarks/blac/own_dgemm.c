#include "own_dgemm.h"

#include <blis.h>

void own_dgemm(int n, double const* a, double const* b, double* c)
{
    double const one = 1.0, zero = 0.0;
    dgemm_("N", "N", &n, &n, &n, &one, a, &n, b, &n, &zero, c, &n);
}
