#pragma once

#include "cow_COW.h"
#include "mem_Allocator.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

template<class K, class V>
class cow_BtreeNode;

/// A stack of plain values whose first `inlineCount` need no allocation.
template<class T, int inlineCount>
class cow_BtreeStack
{
    static_assert(std::is_trivially_copyable_v<T>);

public:
    cow_BtreeStack() noexcept : m_values(m_inline) {}
    cow_BtreeStack(cow_BtreeStack const&) = delete;
    cow_BtreeStack& operator=(cow_BtreeStack const&) = delete;

    /// Whether there are no values.
    bool IsEmpty() const noexcept { return m_size == 0; }
    /// The value pushed last; there must be one.
    T const& Top() const noexcept { return m_values[m_size - 1]; }
    /// Drops the value pushed last; there must be one.
    void Pop() noexcept { --m_size; }

    /// @throws mem_OutOfMemory, the stack is as it was
    void Push(T const& value)
    {
        if (m_size == m_capacity)
            Grow();
        m_values[m_size++] = value;
    }

private:
    void Grow()
    {
        std::unique_ptr<T, mem_Deleter> larger(
            static_cast<T*>(mem_OperatorNewThrow(mem_ArrayBytes(2 * m_capacity, sizeof(T)))));
        std::memcpy(static_cast<void*>(larger.get()), m_values, static_cast<std::size_t>(m_size) * sizeof(T));
        m_heap = std::move(larger);
        m_values = m_heap.get();
        m_capacity *= 2;
    }

    T m_inline[inlineCount];
    std::unique_ptr<T, mem_Deleter> m_heap;
    T* m_values;
    std::int64_t m_size = 0;
    std::int64_t m_capacity = inlineCount;
};

/// What one insertion or removal has changed so far: taken back on destruction unless Keep() was called.
///
/// Insertions and removals allocate on the way down, where nothing is changed yet, but also on the way back up, where a
/// rotation may meet a node that is still shared. When that fails, the map must not be left half changed: its user
/// would not know who owns the value.
template<class K, class V>
class cow_BtreeChanges
{
public:
    /// A node of the map.
    using Node = cow_BtreeNode<K, V>;
    /// What holds a node for its parent.
    using Handle = cow_COW<Node>;

    cow_BtreeChanges() noexcept = default;
    cow_BtreeChanges(cow_BtreeChanges const&) = delete;
    cow_BtreeChanges& operator=(cow_BtreeChanges const&) = delete;
    ~cow_BtreeChanges()
    {
        if (m_kept)
            return;
        for (; !m_before.IsEmpty(); m_before.Pop()) {
            Before const& before = m_before.Top();
            before.node->m_side[Node::kLeft] =
                before.left; // the handles are what they were, but they may hold copies of their nodes by now
            before.node->m_side[Node::kRight] = before.right;
            before.node->m_height = before.height;
        }
        static_cast<void>(m_removed.release()); // the restored links own it again
    }

    /// To be called before the links or the height of an unshared node change; more than once is allowed.
    void Remember(Node& node)
    {
        m_before.Push({&node, node.m_side[Node::kLeft].handle, node.m_side[Node::kRight].handle, node.m_height});
    }

    /// A new handle that is linked now: deleted if the changes are taken back.
    void Added(std::unique_ptr<Handle> handle) noexcept { m_added = std::move(handle); }
    /// A handle that is linked no longer: deleted if the changes are kept.
    void Removed(Handle* handle) noexcept { m_removed.reset(handle); }

    /// The changes stay: the destructor takes nothing back.
    void Keep() noexcept
    {
        static_cast<void>(m_added.release()); // the links own it
        m_kept = true;
    }

private:
    struct Before {
        Node* node;
        Handle* left;
        Handle* right;
        std::int32_t height;
    };

    cow_BtreeStack<Before, 64> m_before;
    std::unique_ptr<Handle> m_added;
    std::unique_ptr<Handle> m_removed;
    bool m_kept = false;
};
