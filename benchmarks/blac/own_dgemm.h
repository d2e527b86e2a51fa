#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// C := A B of order n by DGEMM of the kernel library that the built-in product is made of, as it stands: with its own choice of kernel.
void own_dgemm(int n, double const* a, double const* b, double* c);

#ifdef __cplusplus
}
#endif
