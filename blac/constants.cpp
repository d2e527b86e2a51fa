// The table of machine numbers for Fortran callers.

#include "KVOFortran.h"

#include <array>
#include <bit>
#include <cstdint>

namespace
{

constexpr std::array<double, 16> kConstants = {
    std::bit_cast<double>(std::uint64_t{0x7FFFFFFFFFFFFFFF}), // NaN, every mantissa bit set
    0x1p+1022,                                                // a large power of two
    1.7976931348623157e+308,                                  // largest double
    2.2250738585072014e-308,                                  // smallest normalized double
    0x1p-52,                                                  // machine epsilon
    0x1.0000000000001p-53,                                    // Deliberate: unit round-off, one unit in the last place above 2^-53
    2.0,                                                      // radix
    53.0,                                                     // mantissa digits
    709.0,                                                    // largest safe exponent of exp
    -708.0,                                                   // smallest safe exponent of exp
    2147483647.0,                                             // largest 32-bit integer
    3.141592653589793,                                        // pi
    2.718281828459045,                                        // e
    0.5772156649015329,                                       // Euler's constant
    0.017453292519943295,                                     // radians per degree
    57.29577951308232,                                        // degrees per radian
};

} // namespace

extern "C" double BLAC_HDMCON(int const* index)
{
    bool const known = *index >= 1 && *index <= static_cast<int>(kConstants.size());
    return kConstants[known ? static_cast<std::size_t>(*index) - 1 : 0];
}
