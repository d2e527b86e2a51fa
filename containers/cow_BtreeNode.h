#pragma once

#include "cow_BtreeChanges.h"
#include "cow_BtreePool.h"
#include "cow_COW.h"

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

template<class K, class V>
class cow_Btree;

/// Nodes are copied into the pool they come from; one that comes from none is copied by `new`.
template<class K, class V>
struct cow_Direct<cow_BtreeNode<K, V>> {
    /// The copy of `source`; it belongs to the caller.
    static cow_BtreeNode<K, V>* Copy(cow_BtreeNode<K, V> const& source)
    {
        return source.m_pool != nullptr ? source.m_pool->New(source) : new cow_BtreeNode<K, V>(source);
    }
};

/// A node of cow_Btree: one key, one value, at most two children, each behind a handle that this node owns.
///
/// Invariants:
/// 1. every key below Left() is smaller, every key below Right() greater than Key(), unless keys are more than 2^31 - 1
///    apart;
/// 2. a node whose handle has the count 1 belongs to one map only, if so do all nodes above it: it may be changed in
///    place;
/// 3. the node that a link names is the one that its handle holds.
/// Users see nodes through cow_Btree and cow_BtreeIterator and change nothing but their values.
template<class K, class V>
class cow_BtreeNode
{
    static_assert(std::signed_integral<K> && sizeof(K) == sizeof(std::int32_t));

public:
    /// What holds a node for its parent.
    using Handle = cow_COW<cow_BtreeNode>;

    /// A node without children.
    cow_BtreeNode(K const& key, V const& value) : m_value(value), m_key(key) {}
    /// A shallow copy: its children are the other's, shared. @throws mem_OutOfMemory, and whatever copying a value
    /// throws
    cow_BtreeNode(cow_BtreeNode const& other) : m_value(other.m_value), m_key(other.m_key), m_height(other.m_height)
    {
        std::unique_ptr<Handle> left = Share(other.m_side[kLeft].handle);
        m_side[kRight] = Share(other.m_side[kRight].handle).release();
        m_side[kLeft] = left.release();
    }
    cow_BtreeNode& operator=(cow_BtreeNode const&) = delete;
    /// Releases the children; the stack it needs does not depend on the tree's depth.
    ~cow_BtreeNode()
    {
        ReleaseSubtree(m_side[kLeft].handle);
        ReleaseSubtree(m_side[kRight].handle);
    }
    /// Gives the memory back to the pool that made the node, or to the system.
    static void operator delete(cow_BtreeNode* node, std::destroying_delete_t) noexcept
    {
        if (node->m_pool != nullptr)
            return node->m_pool->Delete(node);
        node->~cow_BtreeNode();
        ::operator delete(node);
    }

    /// The key.
    K const& Key() const noexcept { return m_key; }
    /// The value.
    V const& Value() const noexcept { return m_value; }
    /// The value, for changing it: of a node that Find() gave.
    V& Value() noexcept { return m_value; }
    /// The subtree of smaller keys; null where there is none.
    Handle const* Left() const noexcept { return m_side[kLeft].handle; }
    /// The subtree of greater keys; null where there is none.
    Handle const* Right() const noexcept { return m_side[kRight].handle; }
    /// 0 for a node without children, else 1 + the greatest height of its children; removals may leave a greater number
    /// behind.
    int Height() const noexcept { return m_height; }

    /// The node of `key` from this one downwards, null when there is none; the nodes below this one on the path are
    /// unshared for the caller to change. @throws as copying a node does; the tree's content is as it was
    cow_BtreeNode* Find(K const& key);
    /// The same without copying.
    cow_BtreeNode const* ConstFind(K const& key) const noexcept;

private:
    friend class cow_Btree<K, V>;
    friend class cow_BtreeChanges<K, V>;
    friend class cow_BtreePool<cow_BtreeNode>;
    friend class cow_CountedHld<cow_BtreeNode>;
    friend struct cow_Direct<cow_BtreeNode>;

    using Changes = cow_BtreeChanges<K, V>;
    using Pool = cow_BtreePool<cow_BtreeNode>;

    // A handle, null where there is no child, and the node it holds: look-ups save the way over the handle, a second
    // miss per level.
    struct Link {
        Link(Handle* h = nullptr) noexcept
            : handle(h), node(h != nullptr ? h->GetPtr() : nullptr) {} // NOLINT: implicit on purpose
        cow_BtreeNode& Unshared()
        {
            if (node->m_holders != 1) // the handle's own test, without going there
                node = &handle->Get();
            return *node;
        }
        explicit operator bool() const noexcept { return handle != nullptr; }

        Handle* handle;
        cow_BtreeNode* node;
    };
    static constexpr int kLeft = 0, kRight = 1;
    struct Step {
        cow_BtreeNode* node;
        Link* link; // the link of `node` that the path takes
    };
    using Path = cow_BtreeStack<Step, 48>;

    // Negative: `key` lies to the left of `nodeKey`, 0: equal. Deliberate: the difference wraps around, so keys more
    // than 2^31 - 1 apart are misordered; the map is used with small ids, and this is the order its users know.
    static std::int32_t Compare(K key, K nodeKey) noexcept
    {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(key) - static_cast<std::uint32_t>(nodeKey));
    }

    static std::unique_ptr<Handle> Share(Handle const* handle)
    {
        return handle != nullptr ? std::make_unique<Handle>(*handle) : nullptr;
    }
    static std::unique_ptr<Handle> NewHandle(Pool& pool, K const& key, V const& value);
    static void ReleaseSubtree(Handle* handle) noexcept;

    std::int32_t& HolderCount() noexcept { return m_holders; }
    Link& Side(std::int32_t comparison) noexcept { return m_side[comparison < 0 ? kLeft : kRight]; }

    // How much higher the right side is than the left one. Deliberate: a missing child counts as 0, like a leaf.
    int Tilt() const noexcept
    {
        return (m_side[kRight] ? m_side[kRight].node->m_height : 0) -
               (m_side[kLeft] ? m_side[kLeft].node->m_height : 0);
    }
    void UpdateHeight(Changes& changes)
    {
        std::int32_t const height = std::max(m_side[kLeft] ? m_side[kLeft].node->m_height + 1 : 0,
                                             m_side[kRight] ? m_side[kRight].node->m_height + 1 : 0);
        if (height == m_height)
            return;
        changes.Remember(*this);
        m_height = height;
    }

    // The workers of cow_Btree's operations. This node is unshared; `changes` receives what they overwrite.
    bool InsertUnlessMember(K const& key, V const& value, Changes& changes);
    bool Remove(K const& key, cow_BtreeNode& parent, Changes& changes);
    void RemoveNode(cow_BtreeNode* child, Link replacement, Changes& changes);
    Link TakeReplacement(Changes& changes);
    static Handle* Balance(Link& self, Changes& changes);
    static void Climb(Path& path, Changes& changes);

    V m_value;
    K m_key;
    Link m_side[2]; // the subtrees of smaller and of greater keys
    std::int32_t m_height = 0;
    std::int32_t m_holders = 0; // the handles' count; it lies in what would be padding
    Pool* m_pool = nullptr;     // null for a node that no map made
};

template<class K, class V>
cow_BtreeNode<K, V>* cow_BtreeNode<K, V>::Find(K const& key)
{
    cow_BtreeNode* node = this;
    while (std::int32_t const comparison = Compare(key, node->m_key)) {
        Link& link = node->Side(comparison);
        if (!link)
            return nullptr;
        node = &link.Unshared();
    }
    return node;
}

template<class K, class V>
cow_BtreeNode<K, V> const* cow_BtreeNode<K, V>::ConstFind(K const& key) const noexcept
{
    cow_BtreeNode const* node = this;
    while (std::int32_t const comparison = Compare(key, node->m_key)) {
        // Which side it is cannot be predicted; the index keeps the compilers from making it a branch.
        node = node->m_side[comparison < 0 ? kLeft : kRight].node;
        if (node == nullptr)
            return nullptr;
    }
    return node;
}

template<class K, class V>
std::unique_ptr<typename cow_BtreeNode<K, V>::Handle> cow_BtreeNode<K, V>::NewHandle(Pool& pool, K const& key,
                                                                                     V const& value)
{
    std::unique_ptr<cow_BtreeNode> node(pool.New(key, value));
    std::unique_ptr<Handle> handle(new Handle(node.get()));
    static_cast<void>(node.release());
    return handle;
}

// Walks the nodes that nobody else shares in order; the left link of a node whose left side is being released leads
// back up.
template<class K, class V>
void cow_BtreeNode<K, V>::ReleaseSubtree(Handle* handle) noexcept
{
    Handle* up = nullptr;
    for (;;) {
        if (handle != nullptr && handle->Count() == 1) {
            Handle* const left = std::exchange(handle->GetPtr()->m_side[kLeft].handle, up);
            up = std::exchange(handle, left);
            continue;
        }
        delete handle; // shared by others, or null
        if (up == nullptr)
            return;
        cow_BtreeNode& node = up->GetRef();
        Handle* const next = std::exchange(node.m_side[kLeft].handle, nullptr);
        handle = std::exchange(node.m_side[kRight].handle, nullptr);
        delete std::exchange(up, next);
    }
}

template<class K, class V>
bool cow_BtreeNode<K, V>::InsertUnlessMember(K const& key, V const& value, Changes& changes)
{
    Path path;
    cow_BtreeNode* node = this;
    for (;;) {
        std::int32_t const comparison = Compare(key, node->m_key);
        if (comparison == 0)
            return false;
        Link& link = node->Side(comparison);
        path.Push({node, &link});
        if (!link)
            break;
        node = &link.Unshared();
    }

    std::unique_ptr<Handle> leaf = NewHandle(*m_pool, key, value);
    changes.Remember(*node);
    *path.Top().link = leaf.get();
    changes.Added(std::move(leaf));
    node->UpdateHeight(changes);
    path.Pop();
    Climb(path, changes);
    return true;
}

template<class K, class V>
bool cow_BtreeNode<K, V>::Remove(K const& key, cow_BtreeNode& parent, Changes& changes)
{
    Path path;
    cow_BtreeNode* above = &parent;
    cow_BtreeNode* node = this;
    while (std::int32_t const comparison = Compare(key, node->m_key)) {
        Link& link = node->Side(comparison);
        if (!link)
            return false;
        path.Push({node, &link});
        above = node;
        node = &link.Unshared();
    }

    Link const replacement = node->TakeReplacement(changes);
    above->RemoveNode(node, replacement, changes);
    Climb(path, changes);
    return true;
}

// Balances, from the bottom of the path up, the node behind each link and recomputes the height of the node that owns
// the link.
template<class K, class V>
void cow_BtreeNode<K, V>::Climb(Path& path, Changes& changes)
{
    for (; !path.IsEmpty(); path.Pop()) {
        auto const [node, link] = path.Top();
        if (*link)
            if (Handle* const top = Balance(*link, changes)) {
                changes.Remember(*node);
                *link = top;
            }
        node->UpdateHeight(changes);
    }
}

// Replaces `child` by `replacement`; `changes` receives the handle of the child.
template<class K, class V>
void cow_BtreeNode<K, V>::RemoveNode(cow_BtreeNode* child, Link replacement, Changes& changes)
{
    Link& link = m_side[kRight].node == child ? m_side[kRight] : m_side[kLeft];
    changes.Remember(*this);
    changes.Removed(std::exchange(link, replacement).handle);
    UpdateHeight(changes);
}

// Clears this node's links and gives that of the subtree that takes its place; empty when it has no children.
template<class K, class V>
typename cow_BtreeNode<K, V>::Link cow_BtreeNode<K, V>::TakeReplacement(Changes& changes)
{
    if (!m_side[kLeft] || !m_side[kRight]) {
        changes.Remember(*this);
        Link const left = std::exchange(m_side[kLeft], nullptr);
        Link const right = std::exchange(m_side[kRight], nullptr);
        return right ? right : left;
    }

    cow_BtreeNode* above = nullptr;
    Link* link = &m_side[kRight];
    cow_BtreeNode* smallest = &link->Unshared();
    while (smallest->m_side[kLeft]) {
        above = smallest;
        link = &smallest->m_side[kLeft];
        smallest = &link->Unshared();
    }
    Link const replacement = *link;
    changes.Remember(*this);
    changes.Remember(*smallest);
    if (above != nullptr) {
        changes.Remember(*above);
        above->m_side[kLeft] = std::exchange(smallest->m_side[kRight], m_side[kRight]);
        // Deliberate: heights between this node and `above` stay as they are; later changes on that path repair them.
        above->UpdateHeight(changes);
    }
    smallest->m_side[kLeft] = std::exchange(m_side[kLeft], nullptr);
    m_side[kRight] = nullptr;
    smallest->UpdateHeight(changes);
    return replacement;
}

// Rotates the node of `self` when one side is higher by 2 or more. Returns the handle of the new top, null when nothing
// changed. Deliberate: single rotations only, also when the higher child leans the other way; this is not an AVL tree
// and is not to become one.
template<class K, class V>
typename cow_BtreeNode<K, V>::Handle* cow_BtreeNode<K, V>::Balance(Link& self, Changes& changes)
{
    int const tilt = self.node->Tilt();
    if (tilt > -2 && tilt < 2)
        return nullptr;
    cow_BtreeNode& node = self.Unshared(); // shared only if it has just replaced a removed parent
    Link& outer = node.Side(tilt);
    cow_BtreeNode& top = outer.Unshared();
    Link& inner = top.Side(-tilt);
    changes.Remember(node);
    changes.Remember(top);
    Handle* const handle = std::exchange(outer, inner).handle;
    inner = self;
    node.UpdateHeight(changes);
    top.UpdateHeight(changes);
    return handle;
}
