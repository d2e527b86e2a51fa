// Forwards the report of a wrong argument to the provider.

#include "KVOFortran.h"
#include "provider.h"

namespace
{

constexpr std::size_t kNameLength = 6;

} // namespace

extern "C" void BLAC_XERBLA(char const* name, int const* info)
{
    xerbla_(name, info, kNameLength);
}
