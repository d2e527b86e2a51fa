#pragma once

#include "KVOExport.h"
#include "cow_BtreeChanges.h"
#include "cow_BtreeIterator.h"
#include "cow_BtreeNode.h"
#include "cow_BtreePool.h"
#include "cow_COW.h"
#include "cow_CountedHld.h"

#include <cstdint>
#include <utility>

/// An ordered map from 32-bit keys to values whose copies share all nodes: a balanced binary search tree, in spite of
/// its name.
///
/// Copying is O(1); what is changed through one map is copied first as far as it is shared, so the copies never see
/// each other's changes. Values are copied with their nodes: a pointer is copied, not what it points at, which the map
/// does not own.
/// Keys are compared by the sign of their wrap-around difference, so no two keys of a map may be more than 2^31 - 1
/// apart.
/// A map and its copies are used by one thread at a time.
///
/// Operations that allocate throw mem_OutOfMemory and leave keys, values and shape as they were. The memory of removed
/// nodes is used again by the map and its copies and goes back to the system with the last of them.
template<class K, class V>
class KVO_EXPORT cow_Btree
{
public:
    /// A node, with its key and value.
    using Node = cow_BtreeNode<K, V>;
    /// What holds a node for its parent.
    using Handle = typename Node::Handle;
    /// Walks over the map.
    using Iterator = cow_BtreeIterator<K, V>;

    /// The empty map; the default value is V(), null for a pointer. One small allocation, for the pool of the nodes to
    /// come.
    cow_Btree() : m_root(nullptr), m_size(0), m_default(), m_pool(new Pool) {}
    /// Shares all nodes of `other`: one allocation, however large the map.
    cow_Btree(cow_Btree const& other)
        : m_root(nullptr), m_size(other.m_size), m_default(other.m_default), m_pool(other.m_pool)
    {
        m_root = Node::Share(other.m_root).release();
    }
    /// Takes the nodes of `other`, which is empty then.
    cow_Btree(cow_Btree&& other) noexcept
        : m_root(std::exchange(other.m_root, nullptr)), m_size(std::exchange(other.m_size, 0)),
          m_default(other.m_default), m_pool(other.m_pool)
    {
    }
    /// Shares all nodes of `other`, as copying does. @throws mem_OutOfMemory, the map is as it was
    cow_Btree& operator=(cow_Btree const& other)
    {
        if (this != &other)
            *this = cow_Btree(other);
        return *this;
    }
    /// Swaps the contents.
    cow_Btree& operator=(cow_Btree&& other) noexcept
    {
        std::swap(m_root, other.m_root);
        std::swap(m_size, other.m_size);
        std::swap(m_default, other.m_default);
        std::swap(m_pool, other.m_pool);
        return *this;
    }
    /// O(size) when nobody shares the nodes, O(1) when another map shares them all; the stack it needs does not depend
    /// on the map.
    ~cow_Btree() { Node::ReleaseSubtree(m_root); }

    /// Inserts `key` with `value` and returns true; returns false and leaves the value of a key that is there already.
    /// O(depth); nodes on the path to the key are unshared, also when it is there already.
    bool InsertUnlessMember(K const& key, V const& value);

    /// Removes `key` and returns true, or returns false when it is not there. O(depth); nodes on the path are unshared
    /// either way.
    bool Remove(K const& key);

    /// The value of `key`, or Default() when it is not there. O(depth), never copies; valid until the map changes.
    V const& ConstLookup(K const& key) const noexcept
    {
        Node const* const node = ConstFind(key);
        return node != nullptr ? node->Value() : m_default;
    }
    /// The same for writing: unshares the path, so that no copy of the map sees what is written. The default is not to
    /// be written.
    V& Lookup(K const& key)
    {
        Node* const node = Find(key);
        return node != nullptr ? node->Value() : m_default;
    }
    /// Whether `key` is there. O(depth), never copies.
    bool IsMember(K const& key) const noexcept { return ConstFind(key) != nullptr; }

    /// Number of keys.
    int Size() const noexcept { return m_size; }
    /// What look-ups of keys that are not there refer to.
    V const& Default() const noexcept { return m_default; }
    /// The handle of the topmost node, null when the map is empty.
    Handle const* Root() const noexcept { return m_root; }

private:
    friend class cow_BtreeIterator<K, V>;

    using Pool = cow_BtreePool<Node>;
    Node* Find(K const& key) { return m_root != nullptr ? m_root->Get().Find(key) : nullptr; }
    Node const* ConstFind(K const& key) const noexcept
    {
        return m_root != nullptr ? m_root->ConstGet().ConstFind(key) : nullptr;
    }

    Handle* m_root;
    std::int32_t m_size;
    V m_default;
    cow_CountedHld<Pool> m_pool; // of the nodes
};

template<class K, class V>
bool cow_Btree<K, V>::InsertUnlessMember(K const& key, V const& value)
{
    if (m_root == nullptr) {
        m_root = Node::NewHandle(m_pool.GetRef(), key, value).release();
        m_size = 1;
        return true;
    }
    cow_BtreeChanges<K, V> changes;
    if (!m_root->Get().InsertUnlessMember(key, value, changes))
        return false;
    typename Node::Link root = m_root;
    Handle* const top = Node::Balance(root, changes);
    changes.Keep();
    if (top != nullptr)
        m_root = top;
    ++m_size;
    return true;
}

template<class K, class V>
bool cow_Btree<K, V>::Remove(K const& key)
{
    if (m_root == nullptr)
        return false;
    Node aboveRoot(K(), m_default); // stands in for the root's parent and owns nothing
    struct Borrowed {
        ~Borrowed() { link = nullptr; }
        typename Node::Link& link;
    } const borrowed{aboveRoot.m_side[Node::kLeft]};
    cow_BtreeChanges<K, V> changes; // after `borrowed`: it is taken back before the link is given up
    borrowed.link = m_root;
    if (!borrowed.link.Unshared().Remove(key, aboveRoot, changes))
        return false;
    typename Node::Link root = borrowed.link;
    Handle* const top = root ? Node::Balance(root, changes) : nullptr;
    changes.Keep();
    m_root = top != nullptr ? top : root.handle;
    --m_size;
    return true;
}

class KVOSrvDenseMatrix;

extern template class KVO_EXPORT cow_Btree<int, KVOSrvDenseMatrix*>;
