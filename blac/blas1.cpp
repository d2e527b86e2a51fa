// Forwards to BLAS, level 1: vectors.

#include "KVOFortran.h"
#include "provider.h"

extern "C" double BLAC_DASUM(int const* n, double const* x, int const* incx)
{
    return dasum_(n, x, incx);
}

extern "C" void BLAC_DAXPY(int const* n, double const* alpha, double const* x, int const* incx, double* y, int const* incy)
{
    daxpy_(n, alpha, x, incx, y, incy);
}

extern "C" void BLAC_DCOPY(int const* n, double const* x, int const* incx, double* y, int const* incy)
{
    dcopy_(n, x, incx, y, incy);
}

extern "C" double BLAC_DDOT(int const* n, double const* x, int const* incx, double const* y, int const* incy)
{
    return ddot_(n, x, incx, y, incy);
}

extern "C" double BLAC_DNRM2(int const* n, double const* x, int const* incx)
{
    return dnrm2_(n, x, incx);
}

extern "C" void BLAC_DROT(int const* n, double* x, int const* incx, double* y, int const* incy, double const* c, double const* s)
{
    drot_(n, x, incx, y, incy, c, s);
}

extern "C" void BLAC_DSCAL(int const* n, double const* alpha, double* x, int const* incx)
{
    dscal_(n, alpha, x, incx);
}

extern "C" void BLAC_DSWAP(int const* n, double* x, int const* incx, double* y, int const* incy)
{
    dswap_(n, x, incx, y, incy);
}

extern "C" int BLAC_IDAMAX(int const* n, double const* x, int const* incx)
{
    return idamax_(n, x, incx);
}
