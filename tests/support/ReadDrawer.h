#pragma once

#include "KVOSimCSet.h"
#include "KVOSimDistribution.h"
#include "KVOSimTransfer.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Reads the sets of a drawer and all of its arrays, as they lie in the file. None of a drawer whose arrays are larger than a MiB: in a
/// damaged file that is no damage.
inline std::vector<std::vector<std::byte>> ReadDrawer(KVOSimDistribution const& distribution, KVOSimDrawer const& drawer)
{
    constexpr std::int64_t kMostItems = (1 << 20) / 8;
    KVOSimTransfer transfer(distribution);
    transfer.SetRead();
    transfer.SetSerialization(drawer.serialization);
    std::vector<std::vector<std::byte>> arrays;
    int const slots = drawer.kind == KVOSimDenseDrawer ? 1 : drawer.kind == KVOSimSparseDrawer ? 3 : 4;
    for (int slot = 0; slot < slots; ++slot) {
        std::int64_t const items = distribution.DataSizeItems(drawer.id, slot);
        if (items > kMostItems)
            return {};
        arrays.emplace_back(static_cast<std::size_t>(items) * 8);
        transfer.SetBuffer(slot, arrays.back().data(), arrays.back().size());
    }
    for (int d = 0; d < drawer.csets.Size(); ++d) {
        KVOSimCSet(drawer.csets[d]).OrderedMembers();
        transfer.SetDim(d, drawer.csets[d]);
    }
    transfer.ExecRead();
    return arrays;
}
