#pragma once

#include "Descriptor.h"
#include "KVOForRecords.h"
#include "mem_Allocator.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

/// One open record file and the place reached in it.
///
/// Invariants:
/// 1. m_left is what the file, by its size when it was opened, holds beyond the bytes handed out; nothing is read beyond it.
/// 2. Between two calls, m_inRecord says that the current sub-record has m_itemBytes > 0 bytes left: a sub-record that is used up is
///    closed at once, its trailing marker checked, and the next one of the record opened.
/// 3. A file found malformed stays so; m_place.fault and m_reason tell where and why.
class RecordFile : public mem_AllocationOperators
{
public:
    /// Null when the file cannot be opened for reading or is not a regular file.
    static std::unique_ptr<RecordFile> Open(char const* path);
    ~RecordFile() = default;
    RecordFile(RecordFile const&) = delete;
    RecordFile& operator=(RecordFile const&) = delete;

    KVOForStatus NextRecord();
    /// Null skips.
    KVOForStatus Transmit(void* items, std::uint64_t bytes);

    KVOForPlace const& Place() const noexcept { return m_place; }

private:
    RecordFile(Descriptor file, std::int64_t size) : m_file(std::move(file)), m_size(size), m_left(static_cast<std::uint64_t>(size)) {}

    bool TakeItems(char* items, std::uint64_t bytes);
    bool BeginSubRecord();
    bool EndSubRecord();
    bool CloseUsedUpSubRecords();
    KVOForStatus Malformed();
    /// Says what is wrong at a byte. @return false
    bool Refuse(std::int64_t byte, char const* format, ...) noexcept __attribute__((format(printf, 3, 4)));
    std::int64_t NextByte() const noexcept { return m_size - static_cast<std::int64_t>(m_left); }

    bool Take(void* target, std::uint64_t bytes);
    bool Skip(std::uint64_t bytes);
    bool Fill();

    Descriptor m_file;
    std::int64_t m_size;
    std::uint64_t m_left;
    bool m_malformed = false;
    KVOForPlace m_place;
    char m_reason[120];

    bool m_inRecord = false;
    bool m_continues = false; // another sub-record follows
    bool m_continued = false; // another sub-record came before
    std::int32_t m_length = 0;
    std::uint64_t m_itemBytes = 0;

    std::size_t m_next = 0; // of the bytes in m_buffer
    std::size_t m_end = 0;
    char m_buffer[65536];
};
