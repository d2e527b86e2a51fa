#include "Crc32c.h"

#include "KVOBasProcessor.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace simdb
{

namespace
{

constexpr std::uint32_t kPolynomial = 0x82f63b78; // reflected

// [k][b]: what the byte b does to the remainder when k zero bytes follow it.
constexpr std::array<std::array<std::uint32_t, 256>, 8> kTables = [] {
    std::array<std::array<std::uint32_t, 256>, 8> tables{};
    for (std::uint32_t b = 0; b < 256; ++b) {
        std::uint32_t remainder = b;
        for (int bit = 0; bit < 8; ++bit)
            remainder = remainder >> 1 ^ (remainder % 2 != 0 ? kPolynomial : 0);
        tables[0][b] = remainder;
    }
    for (std::size_t k = 1; k < 8; ++k)
        for (std::size_t b = 0; b < 256; ++b)
            tables[k][b] = tables[k - 1][b] >> 8 ^ tables[0][tables[k - 1][b] & 0xff];
    return tables;
}();

std::uint64_t Load(std::byte const* at) noexcept
{
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// All of these take and give the remainder itself, without the inversion at both ends.
std::uint32_t ByTables(std::byte const* at, std::size_t bytes, std::uint32_t crc) noexcept
{
    for (; bytes >= 8; at += 8, bytes -= 8) {
        std::uint64_t const word = Load(at) ^ crc;
        crc = 0;
        for (std::size_t k = 0; k < 8; ++k)
            crc ^= kTables[7 - k][word >> 8 * k & 0xff];
    }
    for (; bytes > 0; ++at, --bytes)
        crc = crc >> 8 ^ kTables[0][(crc ^ static_cast<std::uint32_t>(*at)) & 0xff];
    return crc;
}

#if defined(__x86_64__)

// The instruction takes three cycles and can begin every cycle: three streams side by side fill it. Each is this long; their remainders
// are joined by moving the first two over the zero bytes that stand for what follows.
constexpr std::size_t kStream = 4096;

using Shift = std::array<std::array<std::uint32_t, 256>, 4>;

// [k][b]: the byte b at place k of a remainder, moved over kStream zero bytes.
Shift const& StreamShift() noexcept
{
    static Shift const s_shift = [] {
        std::array<std::byte, kStream> const zeros{};
        Shift shift{};
        for (std::size_t k = 0; k < 4; ++k)
            for (std::size_t bit = 0; bit < 8; ++bit) { // the rest are sums of these
                std::uint32_t const moved = ByTables(zeros.data(), zeros.size(), std::uint32_t{1} << (8 * k + bit));
                for (std::size_t b = 0; b < 256; ++b)
                    if ((b >> bit & 1) != 0)
                        shift[k][b] ^= moved;
            }
        return shift;
    }();
    return s_shift;
}

std::uint32_t Moved(Shift const& shift, std::uint64_t crc) noexcept
{
    return shift[0][crc & 0xff] ^ shift[1][crc >> 8 & 0xff] ^ shift[2][crc >> 16 & 0xff] ^ shift[3][crc >> 24 & 0xff];
}

__attribute__((target("sse4.2"))) std::uint32_t ByInstruction(std::byte const* at, std::size_t bytes, std::uint32_t before) noexcept
{
    std::uint64_t crc = before;
    if (bytes >= 3 * kStream) {
        Shift const& shift = StreamShift();
        for (; bytes >= 3 * kStream; at += 3 * kStream, bytes -= 3 * kStream) {
            std::uint64_t second = 0, third = 0;
            for (std::size_t i = 0; i < kStream; i += 8) {
                crc = _mm_crc32_u64(crc, Load(at + i));
                second = _mm_crc32_u64(second, Load(at + kStream + i));
                third = _mm_crc32_u64(third, Load(at + 2 * kStream + i));
            }
            crc = Moved(shift, Moved(shift, crc) ^ second) ^ third;
        }
    }
    for (; bytes >= 8; at += 8, bytes -= 8)
        crc = _mm_crc32_u64(crc, Load(at));
    std::uint32_t result = static_cast<std::uint32_t>(crc);
    for (; bytes > 0; ++at, --bytes)
        result = _mm_crc32_u8(result, static_cast<unsigned char>(*at));
    return result;
}

// x^exponent modulo the polynomial, as a factor for the carry-less product of 64-bit words whose lowest bit is their highest power. Such a
// product is that of the polynomials times x, which the exponent allows for.
constexpr std::uint64_t Factor(unsigned exponent) noexcept
{
    std::uint32_t remainder = 0x80000000; // 1
    for (unsigned i = 1; i < exponent; ++i)
        remainder = remainder >> 1 ^ (remainder % 2 != 0 ? kPolynomial : 0);
    return std::uint64_t{remainder} << 32;
}

constexpr std::size_t kFold = 256; ///< bytes that are worked on side by side

// Every 16 bytes are replaced by their remainder kFold bytes further on (V. Gopal et al., Fast CRC Computation for Generic Polynomials
// Using PCLMULQDQ Instruction, 2009); of the last kFold bytes the instruction makes the sum.
__attribute__((target("sse4.2,avx512f,vpclmulqdq"))) std::uint32_t ByProducts(std::byte const* at, std::size_t bytes,
                                                                              std::uint32_t before) noexcept
{
    if (bytes < 4 * kFold)
        return ByInstruction(at, bytes, before);
    constexpr long long kFirst = static_cast<long long>(Factor(8 * kFold + 64)), kSecond = static_cast<long long>(Factor(8 * kFold));
    __m512i const factors = _mm512_set4_epi64(kSecond, kFirst, kSecond, kFirst);
    auto const fold = [&](__m512i sum, std::byte const* next) __attribute__((target("sse4.2,avx512f,vpclmulqdq")))
    {
        constexpr int kXorOfThree = 0x96;
        return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(sum, factors, 0x00), _mm512_clmulepi64_epi128(sum, factors, 0x11),
                                         _mm512_loadu_si512(next), kXorOfThree);
    };
    __m512i a = _mm512_xor_si512(_mm512_loadu_si512(at), _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(before))));
    __m512i b = _mm512_loadu_si512(at + 64), c = _mm512_loadu_si512(at + 128), d = _mm512_loadu_si512(at + 192);
    for (at += kFold, bytes -= kFold; bytes >= kFold; at += kFold, bytes -= kFold) {
        a = fold(a, at);
        b = fold(b, at + 64);
        c = fold(c, at + 128);
        d = fold(d, at + 192);
    }
    alignas(64) std::array<std::byte, kFold> rest;
    _mm512_store_si512(rest.data(), a);
    _mm512_store_si512(rest.data() + 64, b);
    _mm512_store_si512(rest.data() + 128, c);
    _mm512_store_si512(rest.data() + 192, d);
    return ByInstruction(at, bytes, ByInstruction(rest.data(), rest.size(), 0));
}

#endif

using Kernel = std::uint32_t (*)(std::byte const*, std::size_t, std::uint32_t) noexcept;

Kernel Instruction() noexcept
{
#if defined(__x86_64__)
    if (KVOBasProcessor::This().sse42)
        return ByInstruction;
#endif
    return ByTables;
}

Kernel Fastest() noexcept
{
#if defined(__x86_64__)
    if (KVOBasProcessor::This().sse42 && KVOBasProcessor::This().vpclmulqdq)
        return ByProducts;
#endif
    return Instruction();
}

} // namespace

std::uint32_t Crc32c(void const* data, std::size_t bytes, std::uint32_t before) noexcept
{
    static Kernel const s_kernel = Fastest();
    return ~s_kernel(static_cast<std::byte const*>(data), bytes, ~before);
}

std::uint32_t Crc32cByInstruction(void const* data, std::size_t bytes, std::uint32_t before) noexcept
{
    return ~Instruction()(static_cast<std::byte const*>(data), bytes, ~before);
}

std::uint32_t Crc32cByTables(void const* data, std::size_t bytes, std::uint32_t before) noexcept
{
    return ~ByTables(static_cast<std::byte const*>(data), bytes, ~before);
}

} // namespace simdb
