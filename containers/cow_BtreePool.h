#pragma once

#include "mem_Allocator.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

/// The memory of the nodes of a map and of all maps that were copied from it, which share it as they share the nodes.
///
/// A look-up costs what it misses in the cache: every node starts a cache line and lies beside those that were made
/// before and after it. Allocated one by one, nodes took up to 1.5 times as long to search. The place of a deleted node
/// is used again; memory goes back to the system with the last of the maps and of the nodes, which a copied handle may
/// keep longer.
template<class Node>
class cow_BtreePool : public mem_AllocationOperators
{
public:
    cow_BtreePool() noexcept = default;
    cow_BtreePool(cow_BtreePool const&) = delete;
    cow_BtreePool& operator=(cow_BtreePool const&) = delete;
    ~cow_BtreePool()
    {
        while (m_arenas != nullptr)
            mem_Free(std::exchange(m_arenas, m_arenas->next));
    }

    /// A new node, made from `arguments`; it is deleted by `delete`. @throws mem_OutOfMemory, and whatever the
    /// constructor throws
    template<class... Arguments>
    Node* New(Arguments const&... arguments)
    {
        void* const place = Take();
        try {
            Node* const node = ::new (place) Node(arguments...);
            node->m_pool = this;
            ++m_holders;
            return node;
        } catch (...) {
            Give(place);
            throw;
        }
    }
    /// For the node's own `delete`.
    void Delete(Node* node) noexcept
    {
        node->~Node();
        Give(node);
        if (--m_holders == 0)
            delete this;
    }

    /// The count of the maps and nodes that hold it, for cow_CountedHld.
    std::int32_t& HolderCount() noexcept { return m_holders; }

private:
    static constexpr std::size_t kCacheLine = 64;
    static constexpr int kFirstArena = 8,
                         kLargestArena = 1024; // in nodes: small maps stay small, large ones allocate rarely

    struct Arena {
        Arena* next;
    };
    struct FreePlace {
        FreePlace* next;
    };

    void* Take()
    {
        static_assert(alignof(Node) <= kCacheLine);
        if (m_free != nullptr)
            return std::exchange(m_free, m_free->next);
        if (m_left == 0)
            AddArena();
        --m_left;
        return std::exchange(m_next, m_next + PlaceBytes());
    }
    void Give(void* place) noexcept { m_free = ::new (place) FreePlace{m_free}; }

    void AddArena()
    {
        std::size_t room = static_cast<std::size_t>(m_arenaSize) * PlaceBytes() + kCacheLine;
        m_arenas = ::new (mem_OperatorNewThrow(sizeof(Arena) + room)) Arena{m_arenas};
        void* begin = m_arenas + 1;
        m_next = static_cast<std::byte*>(std::align(kCacheLine, room - kCacheLine, begin, room));
        m_left = m_arenaSize;
        m_arenaSize = m_arenaSize < kLargestArena ? 2 * m_arenaSize : kLargestArena;
    }

    static constexpr std::size_t PlaceBytes() noexcept
    {
        return (sizeof(Node) + kCacheLine - 1) / kCacheLine * kCacheLine;
    }

    FreePlace* m_free = nullptr;
    std::byte* m_next = nullptr; // first of the m_left places of the newest arena that were never used
    Arena* m_arenas = nullptr;
    int m_left = 0;
    int m_arenaSize = kFirstArena;
    std::int32_t m_holders = 0;
};
