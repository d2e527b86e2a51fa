#pragma once

#include "mem_Allocator.h"

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <type_traits>
#include <utility>

/// A growable list with copy-on-write: copying shares the content, the first change of a shared list clones it.
///
/// The content lies in blocks of 16, 32, 64, ... elements, so that appending never moves what is there: no more than the elements'
/// own memory is touched, however long the list gets. T is trivially copyable. Lists of several threads may share their content;
/// one list is used by one thread.
template<class T>
class cow_List
{
    static_assert(std::is_trivially_copyable_v<T>);
    static_assert(alignof(T) <= alignof(std::max_align_t)); // what the allocator gives

public:
    cow_List() noexcept = default;
    /// Shares the content of `other`, O(1).
    cow_List(cow_List const& other) noexcept : m_content(other.m_content)
    {
        if (m_content != nullptr)
            m_content->sharers.fetch_add(1, std::memory_order_relaxed);
    }
    /// Takes the content of `other`, which is empty then.
    cow_List(cow_List&& other) noexcept : m_content(std::exchange(other.m_content, nullptr)) {}
    /// Takes the content of `other`, a copy or a temporary; shares it when it was copied.
    cow_List& operator=(cow_List other) noexcept
    {
        std::swap(m_content, other.m_content);
        return *this;
    }
    ~cow_List() { Release(); }

    /// Number of elements.
    std::int64_t Size() const noexcept { return m_content != nullptr ? m_content->Size() : 0; }

    /// Element `index`, 0-based; not checked.
    T const& operator[](std::int64_t index) const noexcept
    {
        int const block = BlockOf(index);
        return m_content->blocks[block][index - FirstOf(block)];
    }

    /// Appends `value`, amortised O(1). @throws mem_OutOfMemory, the list is as it was
    void Append(T const& value)
    {
        if (m_content == nullptr || m_content->IsShared() || m_content->next == m_content->limit)
            PrepareAppend();
        *m_content->next++ = value;
    }

    /// Drops all but the first `size` elements and gives their blocks back; a `size` beyond the list changes nothing.
    void Truncate(std::int64_t size)
    {
        if (size >= Size())
            return;
        if (size <= 0) {
            Release();
            return;
        }
        if (m_content->IsShared())
            Clone();
        int const last = BlockOf(size - 1);
        while (m_content->blockCount > last + 1)
            mem_Free(m_content->blocks[--m_content->blockCount]);
        m_content->next = m_content->blocks[last] + (size - FirstOf(last));
        m_content->limit = m_content->blocks[last] + LengthOf(last);
    }

    /// Number of pieces that Block() gives; 0 for an empty list.
    int BlockCount() const noexcept { return m_content != nullptr ? m_content->blockCount : 0; }
    /// The content in order, in pieces: Block(0), Block(1), ... Block(BlockCount() - 1), none of them empty.
    std::span<T const> Block(int block) const noexcept
    {
        T const* const begin = m_content->blocks[block];
        return {begin, block + 1 < m_content->blockCount ? begin + LengthOf(block) : m_content->next};
    }

    /// Hands the pieces to take(std::span<T const>) in order and gives each back at once, unless it is shared; empty afterwards. For a
    /// consumer of a long list that has no memory for two of its kind. `take` does not throw.
    template<class Take>
    void Drain(Take const& take) noexcept
    {
        for (int block = 0; block < BlockCount(); ++block) {
            take(Block(block));
            if (!m_content->IsShared())
                mem_Free(std::exchange(m_content->blocks[block], nullptr));
        }
        Release();
    }

    /// Pieces are never more.
    static constexpr int kMaxBlocks = 48; // 2^52 elements, more than any address space holds

private:
    static constexpr int kFirstBits = 4;

    static constexpr std::int64_t LengthOf(int block) noexcept { return std::int64_t{1} << (kFirstBits + block); }
    static constexpr std::int64_t FirstOf(int block) noexcept { return LengthOf(block) - LengthOf(0); }
    static constexpr int BlockOf(std::int64_t index) noexcept
    {
        return static_cast<int>(std::bit_width(static_cast<std::uint64_t>(index + LengthOf(0)))) - 1 - kFirstBits;
    }

    struct Content {
        std::int64_t Size() const noexcept { return blockCount == 0 ? 0 : FirstOf(blockCount - 1) + (next - blocks[blockCount - 1]); }

        // Once it is false no other list can come to share the content, and those that did are done with it.
        bool IsShared() const noexcept { return sharers.load(std::memory_order_acquire) != 1; }

        std::atomic<std::int32_t> sharers{1};
        std::int32_t blockCount = 0;
        T* next = nullptr; // first free place of the last block
        T* limit = nullptr;
        T* blocks[kMaxBlocks];
    };

    static void Destroy(Content* content) noexcept
    {
        for (int block = 0; block < content->blockCount; ++block)
            mem_Free(content->blocks[block]);
        mem_Free(content);
    }

    static void AddBlock(Content& content)
    {
        std::int64_t const length = LengthOf(content.blockCount);
        T* const block = static_cast<T*>(mem_OperatorNewThrow(mem_ArrayBytes(length, sizeof(T))));
        content.blocks[content.blockCount++] = block;
        content.next = block;
        content.limit = block + length;
    }

    void PrepareAppend()
    {
        if (m_content == nullptr)
            m_content = new (mem_OperatorNewThrow(sizeof(Content))) Content;
        else if (m_content->IsShared())
            Clone();
        if (m_content->next == m_content->limit)
            AddBlock(*m_content);
    }

    void Clone()
    {
        Content* const copy = new (mem_OperatorNewThrow(sizeof(Content))) Content;
        try {
            for (int block = 0; block < BlockCount(); ++block) {
                std::span<T const> const source = Block(block);
                AddBlock(*copy);
                std::memcpy(static_cast<void*>(copy->next), source.data(), source.size_bytes());
                copy->next += source.size();
            }
        } catch (...) {
            Destroy(copy);
            throw;
        }
        Release();
        m_content = copy;
    }

    void Release() noexcept
    {
        if (m_content != nullptr && m_content->sharers.fetch_sub(1, std::memory_order_acq_rel) == 1)
            Destroy(m_content);
        m_content = nullptr;
    }

    Content* m_content = nullptr;
};
