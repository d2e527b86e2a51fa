#pragma once

#include "KVOExport.h"

/// The Fortran-callable entry points, as C prototypes.
extern "C" {

/// @name Timers and sort
/// @{

/// Gives the processor time of the process in seconds since the process's timer was started (KVOSrvTimer::CreateTimer()).
/// @param[out] t  seconds; without a timer NaN, and a line on the error stream
KVO_EXPORT void KVOSRVGETCPUTIME(double* t);

/// Gives the elapsed time in seconds since the process's timer was started; otherwise as KVOSRVGETCPUTIME.
KVO_EXPORT void KVOSRVGETWALLTIME(double* t);

/// Sorts `keys` ascending, in place; tag k and column k go where key k goes. Not stable; the places of NaN keys are unspecified.
///
/// @param[in,out] keys     `n` keys
/// @param[in,out] columns  `nrow` x `n`, leading dimension `nrow`; not touched when `nrow` is 0 or less
/// @param[in,out] tags     `n` integers
/// @param         nrow     entries carried per key
/// @param         n        number of keys; 0 or less sorts nothing
/// @param[out]    status   0; -1 when the stack of pending ranges was exhausted: the items are then all there, but only partly sorted
/// @complexity O(n log n) comparisons on average, no allocation
KVO_EXPORT void KVOSRVSORT13(double* keys, double* columns, int* tags, int const* nrow, int const* n, int* status);

/// @}

} // extern "C"
