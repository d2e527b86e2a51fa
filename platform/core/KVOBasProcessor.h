#pragma once

/// @file
/// What the processor is, and what is chosen by it: whatever is fastest on one kind of processor and slow on another
/// asks here.

#include "KVOExport.h"

#include <array>
#include <cstddef>

/// Who makes the processor.
enum class KVOBasVendor { Intel, Amd, Other };

/// What is chosen by the processor. No result depends on it, but that of BLAC_DGEMM2, whose order of additions is its
/// kernel's.
struct KVOBasChoices {
    bool copiesPastCache; ///< stores past the caches pay in copies from one end to the other of what nobody reads soon
    bool storesPastCache; ///< they pay in transposes too, for whole cache lines of many columns in turns
    int groupPages;       ///< pages of 4 KiB that the vectors of a sparse product may touch at once
};

/// A processor. Sizes of caches are bytes; of those that cannot be found out, as in some virtual machines, common small
/// ones are told.
struct KVO_EXPORT KVOBasProcessor {
    char const* name;    ///< of its family; "unknown" when it is none of those in the table
    KVOBasVendor vendor; ///< its maker
    int family;          ///< with its extension, as the vendors print it; 0 when it is not an x86 processor
    int model;           ///< the same

    // Instructions, told only where the operating system saves their registers.
    bool sse42;      ///< SSE4.2
    bool avx2;       ///< AVX2, FMA and BMI2
    bool avx512;     ///< AVX-512 F, CD, BW, DQ and VL, and avx2
    bool vpclmulqdq; ///< carry-less products of 512-bit registers, and AVX-512 F
    int vectorBytes; ///< width of the units that compute vectors; below 64 where 512-bit instructions run in halves

    std::size_t l1Bytes; ///< first-level data cache of a core
    std::size_t l2Bytes; ///< second-level cache of a core
    std::size_t l3Bytes; ///< last-level cache; 0 when there is none
    int coresPerL3;      ///< logical processors that share it
    int pages;           ///< pages of 4 KiB that the second-level translation buffer reaches
    int largePages;      ///< pages of 2 MiB that it reaches; 0 when that is not known

    KVOBasChoices choices; ///< what is made of all that

    /// The one that runs this; looked up at the first call, from any thread. Where the environment variable
    /// KVO_PROCESSOR has the name of a family at that time, it is Named() of it; any other value is ignored.
    static KVOBasProcessor const& This() noexcept;

    /// A typical server processor of the family `name`, but with the instructions of the processor that runs this,
    /// which it can't exceed; "unknown" for a name that is not in the table.
    static KVOBasProcessor Named(char const* name) noexcept;

    /// The answer of the instruction CPUID to a leaf and subleaf: EAX, EBX, ECX, EDX.
    using Cpuid = std::array<unsigned, 4> (*)(unsigned leaf, unsigned subleaf);
    /// The processor whose CPUID is given, but with the instructions of the one that runs this.
    static KVOBasProcessor From(Cpuid cpuid) noexcept;
};
