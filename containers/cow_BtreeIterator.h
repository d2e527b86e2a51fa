#pragma once

#include "cow_BtreeNode.h"
#include "mem_Allocator.h"

#include <memory>
#include <utility>

/// One cell of an iterator's stack: the handle of a node, which belongs to the tree, and the next cell toward the root.
template<class K, class V>
class cow_BtreeNodeLink : public mem_AllocationOperators
{
public:
    /// What holds a node for its parent.
    using Handle = typename cow_BtreeNode<K, V>::Handle;

    /// @param node  its handle
    /// @param next  the cell below, toward the root; null at the bottom
    cow_BtreeNodeLink(Handle const* node, cow_BtreeNodeLink* next) noexcept : m_node(node), m_next(next) {}

    /// The handle of the node.
    Handle const* Node() const noexcept { return m_node; }
    /// The cell toward the root; null at the bottom.
    cow_BtreeNodeLink* Next() const noexcept { return m_next; }

private:
    Handle const* m_node;
    cow_BtreeNodeLink* m_next;
};

/// Walks a cow_Btree in the order of its keys, in both directions, without copying a node.
///
/// It reads the map it was made for, which it does not own, and is past the end until First() or Last(). A change of
/// the map, also by a look-up that unshares nodes, makes it invalid until the next First() or Last(). First, Next, Last
/// and Previous throw mem_OutOfMemory and are past the end then. A whole walk takes O(size) steps.
template<class K, class V>
class cow_BtreeIterator
{
public:
    /// The map.
    using Map = cow_Btree<K, V>;
    /// A node of the map.
    using Node = cow_BtreeNode<K, V>;
    /// A cell of the stack.
    using Link = cow_BtreeNodeLink<K, V>;
    /// What holds a node for its parent.
    using Handle = typename Node::Handle;

    /// Past the end of `map`, which must outlive this object.
    explicit cow_BtreeIterator(Map const& map) noexcept : m_root(&map.m_root) {}
    cow_BtreeIterator(cow_BtreeIterator const&) = delete;
    cow_BtreeIterator& operator=(cow_BtreeIterator const&) = delete;
    ~cow_BtreeIterator() { Clear(); }

    /// Goes to the smallest key; past the end when the map is empty.
    void First() { Start(&Node::Left); }
    /// Goes to the greatest key; past the end when the map is empty.
    void Last() { Start(&Node::Right); }
    /// Goes to the next greater key; past the end when there is none, where it stays.
    void Next() { Step(&Node::Left, &Node::Right); }
    /// Goes to the next smaller key; past the end when there is none, where it stays.
    void Previous() { Step(&Node::Right, &Node::Left); }

    /// The current node, null past the end.
    Node const* Current() const noexcept { return m_top != nullptr ? m_top->Node()->GetPtr() : nullptr; }
    /// The top cell of the stack, that of the current node; null past the end.
    Link const* Top() const noexcept { return m_top; }

private:
    using Child = Handle const* (Node::*)() const noexcept;

    void Start(Child near)
    {
        Clear();
        Descend(*m_root, near);
    }

    // With `near` the child that comes before a node in the direction of the walk, and `far` the one that comes after
    // it.
    void Step(Child near, Child far)
    {
        if (m_top == nullptr)
            return;
        if (Handle const* const after = (Current()->*far)()) {
            Descend(after, near);
            return;
        }
        Handle const* popped = nullptr;
        do {
            popped = m_top->Node();
            Pop();
        } while (m_top != nullptr && (Current()->*far)() == popped);
    }

    void Descend(Handle const* handle, Child near)
    {
        try {
            for (; handle != nullptr; handle = (handle->ConstGet().*near)())
                Push(handle);
        } catch (...) {
            Clear();
            throw;
        }
    }

    void Push(Handle const* node) { m_top = new Link(node, m_top); }
    void Pop() noexcept { delete std::exchange(m_top, m_top->Next()); }
    void Clear() noexcept
    {
        while (m_top != nullptr)
            Pop();
    }

    Handle* const* m_root;
    Link* m_top = nullptr;
};
