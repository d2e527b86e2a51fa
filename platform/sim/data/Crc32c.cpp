#include "Crc32c.h"

#include "KVOBasProcessor.h"

#include <algorithm>
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

/// What becomes of what is summed: a copy, or one past the cache, which does not read what it overwrites. That begins at a cache line.
enum class Copied { No, Plain, PastCache };

/// Bytes to be summed, and copied if they are.
template<Copied copied>
struct Bytes {
    std::byte const* from;
    std::byte* to;
    std::size_t count;

    void Skip(std::size_t bytes) noexcept
    {
        from += bytes;
        if constexpr (copied != Copied::No)
            to += bytes;
        count -= bytes;
    }
    /// `bytes` of them from `at`; does nothing without a copy.
    void Copy(std::size_t at, std::size_t bytes) const noexcept
    {
        if constexpr (copied == Copied::No)
            return;
        std::size_t const end = at + bytes;
#if defined(__x86_64__)
        if constexpr (copied == Copied::PastCache)
            for (; at + sizeof(__m128i) <= end; at += sizeof(__m128i))
                _mm_stream_si128(reinterpret_cast<__m128i*>(to + at), _mm_loadu_si128(reinterpret_cast<__m128i const*>(from + at)));
#endif
        std::memcpy(to + at, from + at, end - at);
        __asm__ volatile("" : : : "memory"); // lest the compiler, which knows that both are the same now, reads one for the other
    }
    /// Where they are summed, once they are copied: what a plain copy holds, since another process may change the source meanwhile.
    std::byte const* Summed() const noexcept
    {
        return copied == Copied::Plain ? to : from;
    }
};

// All of these take and give the remainder itself, without the inversion at both ends.
template<Copied copied>
std::uint32_t ByTables(Bytes<copied> bytes, std::uint32_t crc) noexcept
{
    bytes.Copy(0, bytes.count);
    for (; bytes.count >= 8; bytes.Skip(8)) {
        std::uint64_t const word = Load(bytes.Summed()) ^ crc;
        crc = 0;
        for (std::size_t k = 0; k < 8; ++k)
            crc ^= kTables[7 - k][word >> 8 * k & 0xff];
    }
    for (; bytes.count > 0; bytes.Skip(1))
        crc = crc >> 8 ^ kTables[0][(crc ^ static_cast<std::uint32_t>(*bytes.Summed())) & 0xff];
    return crc;
}

#if defined(__x86_64__)

// The instruction takes three cycles and can begin every cycle: three streams side by side fill it. Each is this long; their remainders
// are joined by moving the first two over the zero bytes that stand for what follows. Two lots of three stay in a first-level cache.
constexpr std::size_t kStream = 2048, kStreams = 3 * kStream;

using Shift = std::array<std::array<std::uint32_t, 256>, 4>;

// [k][b]: the byte b at place k of a remainder, moved over kStream zero bytes.
Shift const& StreamShift() noexcept
{
    static Shift const s_shift = [] {
        std::array<std::byte, kStream> const zeros{};
        Shift shift{};
        for (std::size_t k = 0; k < 4; ++k)
            for (std::size_t bit = 0; bit < 8; ++bit) { // the rest are sums of these
                std::uint32_t const moved = ByTables<Copied::No>({zeros.data(), nullptr, zeros.size()}, std::uint32_t{1} << (8 * k + bit));
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

// Of the next kStreams bytes. The copy runs as far ahead, so that it reads its source in order, as fast as a copy alone: of three streams
// of the source side by side a Zen 4 is half as fast.
template<Copied copied>
__attribute__((target("sse4.2"))) std::uint64_t SumStreams(Bytes<copied> const& bytes, std::uint64_t crc, bool copiesAhead) noexcept
{
    constexpr std::size_t kStep = 32;
    Shift const& shift = StreamShift();
    std::byte const* const at = bytes.Summed();
    std::uint64_t second = 0, third = 0;
    for (std::size_t i = 0; i < kStream; i += kStep) {
        if (copiesAhead)
            bytes.Copy(kStreams + 3 * i, 3 * kStep);
        for (std::size_t k = i; k < i + kStep; k += 8) {
            crc = _mm_crc32_u64(crc, Load(at + k));
            second = _mm_crc32_u64(second, Load(at + kStream + k));
            third = _mm_crc32_u64(third, Load(at + 2 * kStream + k));
        }
    }
    return Moved(shift, Moved(shift, crc) ^ second) ^ third;
}

template<Copied copied>
__attribute__((target("sse4.2"))) std::uint32_t ByInstruction(Bytes<copied> bytes, std::uint32_t before) noexcept
{
    std::uint64_t crc = before;
    bytes.Copy(0, std::min(bytes.count, kStreams));
    for (; bytes.count >= kStreams; bytes.Skip(kStreams)) {
        std::size_t const ahead = std::min(bytes.count - kStreams, kStreams);
        crc = SumStreams(bytes, crc, ahead == kStreams);
        if (ahead < kStreams)
            bytes.Copy(kStreams, ahead);
    }
    for (; bytes.count >= 8; bytes.Skip(8))
        crc = _mm_crc32_u64(crc, Load(bytes.Summed()));
    std::uint32_t result = static_cast<std::uint32_t>(crc);
    for (; bytes.count > 0; bytes.Skip(1))
        result = _mm_crc32_u8(result, static_cast<unsigned char>(*bytes.Summed()));
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

// 64 of them in one load, also for the copy, whoever changes the source: a compiler might make two of it.
template<Copied copied>
__attribute__((target("avx512f"))) __m512i Take(Bytes<copied> const& bytes, std::size_t at) noexcept
{
    __m512i line = _mm512_loadu_si512(bytes.from + at);
    if constexpr (copied != Copied::No)
        __asm__("" : "+v"(line));
    if constexpr (copied == Copied::Plain)
        _mm512_storeu_si512(bytes.to + at, line);
    if constexpr (copied == Copied::PastCache)
        _mm512_stream_si512(reinterpret_cast<__m512i*>(bytes.to + at), line);
    return line;
}

// Every 16 bytes are replaced by their remainder kFold bytes further on (V. Gopal et al., Fast CRC Computation for Generic Polynomials
// Using PCLMULQDQ Instruction, 2009); of the last kFold bytes the instruction makes the sum.
template<Copied copied>
__attribute__((target("sse4.2,avx512f,vpclmulqdq"))) std::uint32_t ByProducts(Bytes<copied> bytes, std::uint32_t before) noexcept
{
    if (bytes.count < 4 * kFold)
        return ByInstruction(bytes, before);
    constexpr long long kFirst = static_cast<long long>(Factor(8 * kFold + 64)), kSecond = static_cast<long long>(Factor(8 * kFold));
    __m512i const factors = _mm512_set4_epi64(kSecond, kFirst, kSecond, kFirst);
    auto const fold = [&](__m512i sum, __m512i next) __attribute__((target("sse4.2,avx512f,vpclmulqdq")))
    {
        constexpr int kXorOfThree = 0x96;
        return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(sum, factors, 0x00), _mm512_clmulepi64_epi128(sum, factors, 0x11), next,
                                         kXorOfThree);
    };
    __m512i a = _mm512_xor_si512(Take(bytes, 0), _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(before))));
    __m512i b = Take(bytes, 64), c = Take(bytes, 128), d = Take(bytes, 192);
    for (bytes.Skip(kFold); bytes.count >= kFold; bytes.Skip(kFold)) {
        a = fold(a, Take(bytes, 0));
        b = fold(b, Take(bytes, 64));
        c = fold(c, Take(bytes, 128));
        d = fold(d, Take(bytes, 192));
    }
    alignas(64) std::array<std::byte, kFold> rest;
    _mm512_store_si512(rest.data(), a);
    _mm512_store_si512(rest.data() + 64, b);
    _mm512_store_si512(rest.data() + 128, c);
    _mm512_store_si512(rest.data() + 192, d);
    return ByInstruction(bytes, ByInstruction<Copied::No>({rest.data(), nullptr, rest.size()}, 0));
}

#endif

template<Copied copied>
using Kernel = std::uint32_t (*)(Bytes<copied>, std::uint32_t) noexcept;

template<Copied copied>
Kernel<copied> KernelFor([[maybe_unused]] Crc32cWay way) noexcept
{
#if defined(__x86_64__)
    KVOBasProcessor const& processor = KVOBasProcessor::This();
    if (way == Crc32cWay::Products && processor.sse42 && processor.vpclmulqdq)
        return ByProducts<copied>;
    if (way != Crc32cWay::Tables && processor.sse42)
        return ByInstruction<copied>;
#endif
    return ByTables<copied>;
}

template<Copied copied>
std::uint32_t Sum(Crc32cWay way, void* to, void const* from, std::size_t bytes, std::uint32_t before) noexcept
{
    static std::array<Kernel<copied>, 3> const s_kernels{KernelFor<copied>(Crc32cWay::Products), KernelFor<copied>(Crc32cWay::Instruction),
                                                         KernelFor<copied>(Crc32cWay::Tables)};
    return ~s_kernels[static_cast<std::size_t>(way)]({static_cast<std::byte const*>(from), static_cast<std::byte*>(to), bytes}, ~before);
}

} // namespace

std::uint32_t Crc32c(void const* data, std::size_t bytes, std::uint32_t before, Crc32cWay way) noexcept
{
    return Sum<Copied::No>(way, nullptr, data, bytes, before);
}

std::uint32_t Crc32cCopy(void* to, void const* from, std::size_t bytes, std::uint32_t before, Crc32cWay way) noexcept
{
    return Sum<Copied::Plain>(way, to, from, bytes, before);
}

std::uint32_t Crc32cCopyPastCache(void* to, void const* from, std::size_t bytes, std::uint32_t before, Crc32cWay way) noexcept
{
    constexpr std::size_t kLine = 64;
    if (!KVOBasProcessor::This().choices.copiesPastCache)
        return Crc32cCopy(to, from, bytes, before, way);
    std::size_t const head = std::min(bytes, static_cast<std::size_t>(-reinterpret_cast<std::uintptr_t>(to) & (kLine - 1)));
    std::uint32_t crc = Sum<Copied::Plain>(way, to, from, head, before);
    crc = Sum<Copied::PastCache>(way, static_cast<std::byte*>(to) + head, static_cast<std::byte const*>(from) + head, bytes - head, crc);
#if defined(__x86_64__)
    _mm_sfence();
#endif
    return crc;
}

} // namespace simdb
