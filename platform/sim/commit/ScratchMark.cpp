#include "ScratchMark.h"

#include "KVOBasLeftover.h"
#include "SimIo.h"
#include "SimJournal.h"

#include <cstring>

namespace simdb::scratch_mark
{

namespace
{

constexpr char kMagic[8] = {'K', 'V', 'O', 'S', 'I', 'M', 'S', 'C'};

// Filled up with zeros to the size of a FileMark. Before it, the file has zeros where a database has its superblock.
struct Beginning {
    char superblock[FileMark::kOffset];
    char magic[sizeof kMagic];
    std::uint64_t host;
    std::int32_t process;
    char unused[FileMark::kEnd - FileMark::kOffset - 20];
};
static_assert(sizeof(Beginning) == FileMark::kEnd);

} // namespace

int Write(int descriptor) noexcept
{
    KVOBasMaker const maker = KVOBasMaker::Own();
    Beginning beginning{{}, {}, maker.host, maker.process, {}};
    std::memcpy(beginning.magic, kMagic, sizeof kMagic);
    return io::Write(descriptor, &beginning, sizeof beginning, 0);
}

bool IsLeftBehind(int descriptor) noexcept
{
    Beginning beginning;
    std::size_t read = 0;
    if (io::Read(descriptor, &beginning, sizeof beginning, 0, read) != 0 || read != sizeof beginning)
        return false;
    constexpr char kNoSuperblock[sizeof beginning.superblock] = {};
    return std::memcmp(beginning.superblock, kNoSuperblock, sizeof kNoSuperblock) == 0 &&
           std::memcmp(beginning.magic, kMagic, sizeof kMagic) == 0 && KVOBasMaker{beginning.host, beginning.process}.IsGone();
}

} // namespace simdb::scratch_mark
