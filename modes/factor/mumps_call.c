/* The one entry into MUMPS, linked with its archives into one object in which only this name can be seen. */
#include "mumps_call.h"

#include <setjmp.h>
#include <stddef.h>

static jmp_buf* s_return = NULL; /* callers hold a lock */

int kvo_mumps(DMUMPS_STRUC_C* instance)
{
    jmp_buf buffer;
    int volatile aborted = 1;
    s_return = &buffer;
    if (setjmp(buffer) == 0) {
        dmumps_c(instance);
        aborted = 0;
    }
    s_return = NULL;
    return aborted;
}

/* What MUMPS calls when it finds itself broken: its own ends the process. Only Fortran frames are left, which clean nothing up. */
void mumps_abort_(void);
void mumps_abort_(void)
{
    longjmp(*s_return, 1);
}
