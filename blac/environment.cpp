// Forwards to LAPACK's questions about its environment.

#include "KVOFortran.h"
#include "provider.h"

using blac::kLength1;

extern "C" int BLAC_ILAENV(int const* ispec, char const* name, char const* opts, int const* n1, int const* n2, int const* n3, int const* n4,
                           std::size_t nameLength, std::size_t optsLength)
{
    return ilaenv_(ispec, name, opts, n1, n2, n3, n4, nameLength, optsLength);
}

extern "C" int BLAC_LSAME(char const* ca, char const* cb)
{
    return lsame_(ca, cb, kLength1, kLength1);
}

extern "C" double BLAC_DLAMCH(char const* cmach)
{
    return dlamch_(cmach, kLength1);
}

extern "C" int BLAC_IEEECK(int const* ispec, float const* zero, float const* one)
{
    return ieeeck_(ispec, zero, one);
}
