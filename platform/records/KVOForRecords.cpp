#include "KVOForRecords.h"

#include "RecordFile.h"

#include <utility>

namespace
{

// A unit that is open; few ever are at once.
struct OpenUnit : mem_AllocationOperators {
    int number;
    std::unique_ptr<RecordFile> file;
    std::unique_ptr<OpenUnit> next;
};

using UnitLink = std::unique_ptr<OpenUnit>;

// The link that holds the unit, or the empty one at the end of the list.
UnitLink& LinkOf(int unit)
{
    thread_local UnitLink firstUnit;
    UnitLink* link = &firstUnit;
    while (*link != nullptr && (*link)->number != unit)
        link = &(*link)->next;
    return *link;
}

} // namespace

KVOForStatus for_open(int unit, char const* path)
{
    for_close(unit);
    std::unique_ptr<RecordFile> file = RecordFile::Open(path);
    if (file == nullptr)
        return KVOForOpenFailure;
    UnitLink opened(new OpenUnit);
    opened->number = unit;
    opened->file = std::move(file);
    LinkOf(unit) = std::move(opened);
    return KVOForOk;
}

KVOForStatus for_read_seq(int unit)
{
    UnitLink const& link = LinkOf(unit);
    return link != nullptr ? link->file->NextRecord() : KVOForNotOpen;
}

KVOForStatus for_read_seq_xmit(int unit, void* items, std::int64_t count, std::int64_t itemBytes)
{
    std::uint64_t bytes = 0;
    if (count < 0 || itemBytes < 0 ||
        __builtin_mul_overflow(static_cast<std::uint64_t>(count), static_cast<std::uint64_t>(itemBytes), &bytes))
        return KVOForBadArgument;
    UnitLink const& link = LinkOf(unit);
    return link != nullptr ? link->file->Transmit(items, bytes) : KVOForNotOpen;
}

KVOForStatus for_inquire(int unit, KVOForPlace& place)
{
    UnitLink const& link = LinkOf(unit);
    if (link == nullptr)
        return KVOForNotOpen;
    place = link->file->Place();
    return KVOForOk;
}

KVOForStatus for_close(int unit)
{
    UnitLink& link = LinkOf(unit);
    if (link == nullptr)
        return KVOForNotOpen;
    link = std::move(link->next);
    return KVOForOk;
}
