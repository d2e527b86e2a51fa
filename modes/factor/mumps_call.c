/* The one entry into MUMPS, linked with its archives into one object in which only this name can be seen. */
#include "mumps_call.h"

#include <setjmp.h>
#include <stddef.h>

static jmp_buf* s_return = NULL; /* callers hold a lock */

int kvo_mumps(DMUMPS_STRUC_C* instance)
{
    jmp_buf buffer;
    s_return = &buffer;
    int const aborted = setjmp(buffer);
    if (!aborted)
        dmumps_c(instance);
    s_return = NULL;
    return aborted;
}

/* What MUMPS calls when it finds itself broken: its own ends the process. Only Fortran frames are left, which clean nothing up. */
void mumps_abort_(void);
void mumps_abort_(void)
{
    longjmp(*s_return, 1);
}
