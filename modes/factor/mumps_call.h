#pragma once

#include <dmumps_c.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Runs the job of an instance. One call at a time in the process. @return not 0 when MUMPS gave itself up: the instance is not to be used
/// again then, nor freed
int kvo_mumps(DMUMPS_STRUC_C* instance);

#ifdef __cplusplus
}
#endif
