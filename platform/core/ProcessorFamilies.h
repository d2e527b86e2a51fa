#pragma once

#include "KVOBasProcessor.h"

#include <span>

/// What CPUID does not tell of a family of processors, and what is chosen for it.
struct ProcessorFamily {
    struct Models {
        int first, last; // inclusive
    };

    char const* name;
    KVOBasVendor vendor;
    int family;
    std::array<Models, 4> models; // unused ones are {0, -1}

    int vectorBytes;
    std::size_t l1Bytes, l2Bytes, l3Bytes;
    int coresPerL3;
    int pages, largePages;

    bool copiesPastCache, storesPastCache;

    bool Has(KVOBasVendor ofVendor, int ofFamily, int ofModel) const noexcept;
};

/// All that are known.
std::span<ProcessorFamily const> ProcessorFamilies() noexcept;
/// One that is not.
ProcessorFamily const& UnknownProcessorFamily() noexcept;
