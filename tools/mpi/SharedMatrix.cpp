#include "SharedMatrix.h"

#include "Errors.h"
#include "Ranks.h"

#include "KVOSimDistribution.h"
#include "KVOSimException.h"
#include "KVOSimTransfer.h"
#include "KVOSrvBlockWriter.h"

#include <algorithm>
#include <vector>

void WriteTogether(Ranks const& ranks, std::string const& path, KVOSimDistributionID const& matrix,
                   std::function<void(KVOSrvBlockWriter& writer)> const& write)
{
    std::vector<std::byte> places;
    ranks.OnFirst([&] {
        KVOSimTransfer transfer{KVOSimDistribution(matrix)};
        transfer.SetWrite();
        transfer.AllocateBlocks();
        KVOSimArray<std::byte> const bytes = transfer.BlockPlaces().Bytes();
        places.assign(bytes.begin(), bytes.end());
    });
    ranks.Share(places);
    ranks.Together([&] {
        try {
            KVOSrvBlockWriter writer(DRXUnicodeString(path.c_str()), KVOSimBlockPlaces::FromBytes(places.data(), places.size()));
            write(writer);
            writer.Sync();
        } catch (KVOSimException const& failure) {
            std::string text = failure.UserReport().c_str();
            if (text.ends_with('.'))
                text.pop_back();
            throw ToolError(ExitCode::kUnwritable,
                            text + "; all ranks need the file under this name, in a folder with room that they share");
        }
    });
}
