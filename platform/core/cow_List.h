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
/// The content lies in pieces of 16, 32, 64, ... elements, so that appending never moves what is there: no more than
/// the elements' own memory is touched, however long the list gets. T is trivially copyable. Lists of several threads
/// may share their content; one list is used by one thread.
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
        int const piece = PieceOf(index);
        return m_content->pieces[piece][index - FirstOf(piece)];
    }

    /// Appends `value`, amortised O(1). @throws mem_OutOfMemory, the list is as it was
    void Append(T const& value)
    {
        if (AppendInRoom(value))
            return;
        PrepareAppend();
        *m_content->next++ = value;
    }

    /// Appends `value` where that takes no more memory. @return whether it did
    bool AppendInRoom(T const& value) noexcept
    {
        if (m_content == nullptr || m_content->IsShared() || m_content->next == m_content->limit)
            return false;
        *m_content->next++ = value;
        return true;
    }

    /// Drops all but the first `size` elements and gives their pieces back; a `size` beyond the list changes nothing.
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
        int const last = PieceOf(size - 1);
        while (m_content->pieceCount > last + 1)
            mem_Free(m_content->pieces[--m_content->pieceCount]);
        m_content->next = m_content->pieces[last] + (size - FirstOf(last));
        m_content->limit = m_content->pieces[last] + LengthOf(last);
    }

    /// Number of pieces that Piece() gives; 0 for an empty list.
    int PieceCount() const noexcept { return m_content != nullptr ? m_content->pieceCount : 0; }
    /// The content in order, in pieces: Piece(0), Piece(1), ... Piece(PieceCount() - 1), none of them empty.
    std::span<T const> Piece(int piece) const noexcept
    {
        T const* const begin = m_content->pieces[piece];
        return {begin, piece + 1 < m_content->pieceCount ? begin + LengthOf(piece) : m_content->next};
    }

    /// Hands the pieces to take(std::span<T const>) in order and gives each back at once, unless it is shared; empty
    /// afterwards. For a consumer of a long list that has no memory for two of its kind. `take` does not throw.
    template<class Take>
    void Drain(Take const& take) noexcept
    {
        for (int piece = 0; piece < PieceCount(); ++piece) {
            take(Piece(piece));
            if (!m_content->IsShared())
                mem_Free(std::exchange(m_content->pieces[piece], nullptr));
        }
        Release();
    }

    /// Pieces are never more.
    static constexpr int kMaxPieces = 48; // 2^52 elements, more than any address space holds

private:
    static constexpr int kFirstBits = 4;

    static constexpr std::int64_t LengthOf(int piece) noexcept { return std::int64_t{1} << (kFirstBits + piece); }
    static constexpr std::int64_t FirstOf(int piece) noexcept { return LengthOf(piece) - LengthOf(0); }
    static constexpr int PieceOf(std::int64_t index) noexcept
    {
        return static_cast<int>(std::bit_width(static_cast<std::uint64_t>(index + LengthOf(0)))) - 1 - kFirstBits;
    }

    struct Content {
        std::int64_t Size() const noexcept
        {
            int const last = pieceCount - 1;
            return pieceCount == 0 ? 0 : FirstOf(last) + (next - pieces[last]);
        }

        // Once it is false no other list can come to share the content, and those that did are done with it.
        bool IsShared() const noexcept { return sharers.load(std::memory_order_acquire) != 1; }

        std::atomic<std::int32_t> sharers{1};
        std::int32_t pieceCount = 0;
        T* next = nullptr; // first free place of the last piece
        T* limit = nullptr;
        T* pieces[kMaxPieces];
    };

    static void Destroy(Content* content) noexcept
    {
        for (int piece = 0; piece < content->pieceCount; ++piece)
            mem_Free(content->pieces[piece]);
        mem_Free(content);
    }

    static void AddPiece(Content& content)
    {
        std::int64_t const length = LengthOf(content.pieceCount);
        T* const piece = static_cast<T*>(mem_OperatorNewThrow(mem_ArrayBytes(length, sizeof(T))));
        content.pieces[content.pieceCount++] = piece;
        content.next = piece;
        content.limit = piece + length;
    }

    void PrepareAppend()
    {
        if (m_content == nullptr)
            m_content = new (mem_OperatorNewThrow(sizeof(Content))) Content;
        else if (m_content->IsShared())
            Clone();
        if (m_content->next == m_content->limit)
            AddPiece(*m_content);
    }

    void Clone()
    {
        Content* const copy = new (mem_OperatorNewThrow(sizeof(Content))) Content;
        try {
            for (int piece = 0; piece < PieceCount(); ++piece) {
                std::span<T const> const source = Piece(piece);
                AddPiece(*copy);
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
