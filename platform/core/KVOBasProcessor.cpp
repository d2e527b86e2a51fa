#include "KVOBasProcessor.h"

#include "ProcessorFamilies.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace
{

constexpr unsigned kExtended = 0x80000000;
constexpr int kWide = 64; // bytes of a 512-bit register

unsigned Bits(unsigned word, int last, int first)
{
    return word >> first & ((2U << (last - first)) - 1);
}

// The compiler's question, not CPUID alone: it asks for the operating system's support as well.
void FindInstructions(KVOBasProcessor& processor) noexcept
{
#if defined(__x86_64__)
    __builtin_cpu_init();
    processor.sse42 = __builtin_cpu_supports("sse4.2");
    processor.avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2");
    processor.avx512 = processor.avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512cd") &&
                       __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
    processor.vpclmulqdq = __builtin_cpu_supports("vpclmulqdq") && __builtin_cpu_supports("avx512f");
#else
    static_cast<void>(processor);
#endif
}

KVOBasProcessor OfFamily(ProcessorFamily const& family) noexcept
{
    KVOBasProcessor processor{};
    FindInstructions(processor);
    processor.name = family.name;
    processor.vendor = family.vendor;
    processor.family = family.family;
    processor.model = std::max(0, family.models[0].first);
    processor.vectorBytes = std::min(family.vectorBytes, processor.avx512 ? kWide : processor.avx2 ? kWide / 2 : kWide / 4);
    processor.l1Bytes = family.l1Bytes;
    processor.l2Bytes = family.l2Bytes;
    processor.l3Bytes = family.l3Bytes;
    processor.coresPerL3 = family.coresPerL3;
    processor.pages = family.pages;
    processor.largePages = family.largePages;
    processor.choices = {family.copiesPastCache, family.storesPastCache, family.pages};
    return processor;
}

KVOBasVendor VendorIn(std::array<unsigned, 4> const& leaf0) noexcept
{
    char text[12];
    std::memcpy(text, &leaf0[1], 4);
    std::memcpy(text + 4, &leaf0[3], 4);
    std::memcpy(text + 8, &leaf0[2], 4);
    std::string_view const vendor(text, sizeof text);
    return vendor == "GenuineIntel" ? KVOBasVendor::Intel : vendor == "AuthenticAMD" ? KVOBasVendor::Amd : KVOBasVendor::Other;
}

// The leaf has the same form with both vendors.
void FindCaches(KVOBasProcessor& processor, KVOBasProcessor::Cpuid cpuid, unsigned leaf) noexcept
{
    constexpr unsigned kData = 1, kUnified = 3, kMost = 16;
    for (unsigned i = 0; i < kMost; ++i) {
        auto const [eax, ebx, ecx, edx] = cpuid(leaf, i);
        static_cast<void>(edx);
        unsigned const type = Bits(eax, 4, 0), level = Bits(eax, 7, 5);
        if (type == 0)
            break;
        if (type != kData && type != kUnified)
            continue;
        std::size_t const bytes =
            std::size_t{Bits(ebx, 31, 22) + 1} * (Bits(ebx, 21, 12) + 1) * (Bits(ebx, 11, 0) + 1) * (std::size_t{ecx} + 1);
        if (level == 1)
            processor.l1Bytes = bytes;
        else if (level == 2)
            processor.l2Bytes = bytes;
        else if (level == 3) {
            processor.l3Bytes = bytes;
            processor.coresPerL3 = static_cast<int>(Bits(eax, 25, 14) + 1);
        }
    }
}

struct Reach {
    unsigned pages, largePages;
};

Reach ReachByIntel(KVOBasProcessor::Cpuid cpuid) noexcept
{
    constexpr unsigned kLeaf = 0x18, kData = 1, kUnified = 3;
    Reach reach{0, 0};
    unsigned const last = std::min(cpuid(kLeaf, 0)[0], 63U);
    for (unsigned i = 0; i <= last; ++i) {
        auto const [eax, ebx, ecx, edx] = cpuid(kLeaf, i);
        static_cast<void>(eax);
        unsigned const type = Bits(edx, 4, 0), level = Bits(edx, 7, 5), entries = Bits(ebx, 31, 16) * ecx;
        if (level != 2 || (type != kData && type != kUnified))
            continue;
        reach.pages += Bits(ebx, 0, 0) * entries;
        reach.largePages += Bits(ebx, 1, 1) * entries;
    }
    return reach;
}

Reach ReachByAmd(KVOBasProcessor::Cpuid cpuid) noexcept
{
    auto const leaf = cpuid(kExtended + 6, 0);
    return {Bits(leaf[1], 27, 16), Bits(leaf[0], 27, 16)};
}

#if defined(__x86_64__)
std::array<unsigned, 4> ThisCpuid(unsigned leaf, unsigned subleaf) noexcept
{
    std::array<unsigned, 4> answer{};
    __cpuid_count(leaf, subleaf, answer[0], answer[1], answer[2], answer[3]);
    return answer;
}
#else
std::array<unsigned, 4> ThisCpuid(unsigned, unsigned) noexcept
{
    return {};
}
#endif

ProcessorFamily const* FamilyNamed(std::string_view name) noexcept
{
    if (name == UnknownProcessorFamily().name)
        return &UnknownProcessorFamily();
    for (ProcessorFamily const& family : ProcessorFamilies())
        if (name == family.name)
            return &family;
    return nullptr;
}

KVOBasProcessor WishedOrFound() noexcept
{
    char const* const wish = std::getenv("KVO_PROCESSOR");
    return wish != nullptr && FamilyNamed(wish) != nullptr ? KVOBasProcessor::Named(wish) : KVOBasProcessor::From(ThisCpuid);
}

} // namespace

KVOBasProcessor const& KVOBasProcessor::This() noexcept
{
    static KVOBasProcessor const s_this = WishedOrFound();
    return s_this;
}

KVOBasProcessor KVOBasProcessor::Named(char const* name) noexcept
{
    ProcessorFamily const* const family = FamilyNamed(name);
    return OfFamily(family != nullptr ? *family : UnknownProcessorFamily());
}

KVOBasProcessor KVOBasProcessor::From(Cpuid cpuid) noexcept
{
    auto const leaf0 = cpuid(0, 0);
    unsigned const eax = leaf0[0] >= 1 ? cpuid(1, 0)[0] : 0;
    unsigned const base = Bits(eax, 11, 8);
    KVOBasVendor const vendor = VendorIn(leaf0);
    int const family = static_cast<int>(base == 0xf ? base + Bits(eax, 27, 20) : base);
    int const model = static_cast<int>(Bits(eax, 7, 4) + (base == 0xf || base == 6 ? Bits(eax, 19, 16) << 4 : 0));
    auto const families = ProcessorFamilies();
    auto const known =
        std::find_if(families.begin(), families.end(), [&](ProcessorFamily const& one) { return one.Has(vendor, family, model); });

    KVOBasProcessor processor = OfFamily(known != families.end() ? *known : UnknownProcessorFamily());
    processor.vendor = vendor;
    processor.family = family;
    processor.model = model;

    unsigned const lastExtended = cpuid(kExtended, 0)[0];
    bool const amd = vendor == KVOBasVendor::Amd;
    constexpr unsigned kAmdCaches = kExtended + 0x1d, kIntelCaches = 4;
    if (amd ? lastExtended >= kAmdCaches : leaf0[0] >= kIntelCaches)
        FindCaches(processor, cpuid, amd ? kAmdCaches : kIntelCaches);
    Reach reach{0, 0};
    if (amd && lastExtended >= kExtended + 6)
        reach = ReachByAmd(cpuid);
    else if (vendor == KVOBasVendor::Intel && leaf0[0] >= 0x18)
        reach = ReachByIntel(cpuid);
    // A count that is too small for any second-level buffer is one that a virtual machine hides.
    constexpr unsigned kFewest = 512;
    if (reach.pages >= kFewest) {
        processor.pages = static_cast<int>(reach.pages);
        processor.largePages = static_cast<int>(reach.largePages);
        constexpr int kMostOfUnknown = 1536;
        processor.choices.groupPages = known != families.end() ? processor.pages : std::min(processor.pages, kMostOfUnknown);
    }
    return processor;
}
