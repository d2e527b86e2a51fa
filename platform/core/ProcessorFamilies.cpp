#include "ProcessorFamilies.h"

#include <algorithm>

// Sources. Models: the kernel's list (arch/x86/include/asm/intel-family.h) and AMD's revision guides. Caches and translation buffers: Intel
// 64 and IA-32 Architectures Optimization Reference Manual (248966), the tables of each microarchitecture; AMD's Software Optimization
// Guides for families 17h (55723, 56305), 19h (56665, 57647) and 1Ah (58455). Caches and core counts are of a common server processor;
// they and the pages serve where CPUID is silent, and to stand for the family.
//
// Stores past the caches spare the reading of what is overwritten. In copies from one end to the other that was seen to pay on Zen 4 (AMD's
// guides advise it for its likes) and to do no harm on a Xeon with 1536 pages. In transposes it pays on Zen 4; on that Xeon (1 MiB and
// 36 MiB of caches) transposed copies, which went past the caches, took at most 2.5 of a memcpy, mirrored triangles, which went through
// them, 3.2 to 3.5: where lines lie apart, no prefetcher reads them ahead. Its successors of the same build are taken to be alike.

namespace
{

constexpr std::size_t kKiB = 1024, kMiB = 1024 * kKiB;
constexpr ProcessorFamily::Models kNone{0, -1};
constexpr auto kIntel = KVOBasVendor::Intel;
constexpr auto kAmd = KVOBasVendor::Amd;

// clang-format off
constexpr ProcessorFamily kFamilies[] = {
    //name             vendor  family models                                                          width L1         L2          L3       cores pages 2 MiB copies stores past the caches
    {"haswell",         kIntel, 0x06, {{{0x3c, 0x3c}, {0x3f, 0x3f}, {0x45, 0x46}, kNone}},             32, 32 * kKiB,  256 * kKiB, 30 * kMiB, 12, 1024, 1024, false, false},
    {"broadwell",       kIntel, 0x06, {{{0x3d, 0x3d}, {0x47, 0x47}, {0x4f, 0x4f}, {0x56, 0x56}}},      32, 32 * kKiB,  256 * kKiB, 35 * kMiB, 14, 1536, 1536, false, false},
    {"skylake",         kIntel, 0x06, {{{0x4e, 0x4e}, {0x5e, 0x5e}, {0x8e, 0x9e}, {0xa5, 0xa6}}},      32, 32 * kKiB,  256 * kKiB,  8 * kMiB,  4, 1536, 1536, false, false},
    {"skylake-sp",      kIntel, 0x06, {{{0x55, 0x55}, kNone, kNone, kNone}},                           64, 32 * kKiB, 1024 * kKiB, 36 * kMiB, 26, 1536, 1536, true,  true},
    {"ice-lake",        kIntel, 0x06, {{{0x6a, 0x6c}, {0x7d, 0x7e}, {0x8c, 0x8d}, {0xa7, 0xa7}}},      64, 48 * kKiB, 1280 * kKiB, 48 * kMiB, 32, 2048, 1024, true,  true},
    {"alder-lake",      kIntel, 0x06, {{{0x97, 0x9a}, {0xb7, 0xb7}, {0xba, 0xba}, {0xbf, 0xbf}}},      32, 48 * kKiB, 1280 * kKiB, 30 * kMiB, 16, 2048, 1024, false, false},
    {"sapphire-rapids", kIntel, 0x06, {{{0x8f, 0x8f}, {0xcf, 0xcf}, {0xad, 0xae}, kNone}},             64, 48 * kKiB, 2048 * kKiB, 60 * kMiB, 32, 2048, 1024, true,  true},
    {"zen",             kAmd,   0x17, {{{0x00, 0x2f}, kNone, kNone, kNone}},                           16, 32 * kKiB,  512 * kKiB,  8 * kMiB,  4, 1536, 1536, false, false},
    {"zen2",            kAmd,   0x17, {{{0x30, 0xff}, kNone, kNone, kNone}},                           32, 32 * kKiB,  512 * kKiB, 16 * kMiB,  4, 2048, 2048, true,  true},
    {"zen3",            kAmd,   0x19, {{{0x00, 0x0f}, {0x20, 0x5f}, kNone, kNone}},                    32, 32 * kKiB,  512 * kKiB, 32 * kMiB,  8, 2048, 2048, true,  true},
    {"zen4",            kAmd,   0x19, {{{0x10, 0x1f}, {0x60, 0x7f}, {0xa0, 0xaf}, kNone}},             32, 32 * kKiB, 1024 * kKiB, 32 * kMiB,  8, 3072, 3072, true,  true},
    {"zen5",            kAmd,   0x1a, {{{0x00, 0x1f}, kNone, kNone, kNone}},                           64, 48 * kKiB, 1024 * kKiB, 32 * kMiB,  8, 4096, 4096, true,  true},
    {"zen5-client",     kAmd,   0x1a, {{{0x20, 0x7f}, kNone, kNone, kNone}},                           32, 48 * kKiB, 1024 * kKiB, 32 * kMiB,  8, 4096, 4096, true,  true},
};

// What is never bad: no store past the caches, the caches and the translation buffer of a small or old processor.
constexpr ProcessorFamily kUnknown =
    {"unknown", KVOBasVendor::Other, 0, {{kNone, kNone, kNone, kNone}},                                64, 32 * kKiB,  256 * kKiB,  2 * kMiB,  1, 1024,    0, false, false};
// clang-format on

} // namespace

bool ProcessorFamily::Has(KVOBasVendor ofVendor, int ofFamily, int ofModel) const noexcept
{
    return vendor == ofVendor && family == ofFamily &&
           std::any_of(models.begin(), models.end(), [&](Models const& range) { return range.first <= ofModel && ofModel <= range.last; });
}

std::span<ProcessorFamily const> ProcessorFamilies() noexcept
{
    return kFamilies;
}

ProcessorFamily const& UnknownProcessorFamily() noexcept
{
    return kUnknown;
}
