#include "cow_Btree.h"

#include "ModelTree.h"

#include <climits>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{

// A value that tells how many of its kind exist.
struct Value {
    Value() : number(0) { ++s_alive; }
    Value(int n) : number(n) { ++s_alive; } // NOLINT: implicit on purpose
    Value(Value const& other) : number(other.number) { ++s_alive; }
    Value& operator=(Value const&) = default;
    ~Value() { --s_alive; }

    int number;
    static inline int s_alive = 0;
};

using Map = cow_Btree<int, Value>;
using Node = Map::Node;
using Handle = Map::Handle;

// The tree in one line: (left key=value^height*count right).
std::string Text(Handle const* handle, bool counts)
{
    if (handle == nullptr)
        return "";
    Node const& node = handle->ConstGet();
    return '(' + Text(node.Left(), counts) + std::to_string(node.Key()) + '=' + std::to_string(node.Value().number) + '^' +
           std::to_string(node.Height()) + (counts ? '*' + std::to_string(handle->Count()) : "") + Text(node.Right(), counts) + ')';
}
std::string Text(ModelTree::Link const& link, bool counts)
{
    if (!link)
        return "";
    return '(' + Text(link->left, counts) + std::to_string(link->key) + '=' + std::to_string(link->value) + '^' +
           std::to_string(link->height) + (counts ? '*' + std::to_string(link.use_count()) : "") + Text(link->right, counts) + ')';
}

std::string Shape(Handle const* handle)
{
    if (handle == nullptr)
        return ".";
    Node const& node = handle->ConstGet();
    if (node.Height() == 0)
        return std::to_string(node.Key());
    return '(' + Shape(node.Left()) + ' ' + std::to_string(node.Key()) + ' ' + Shape(node.Right()) + ')';
}

Map MakeMap(std::vector<int> const& keys)
{
    Map map;
    for (int const key : keys)
        EXPECT_TRUE(map.InsertUnlessMember(key, 10 * key));
    return map;
}

std::map<int, int> Walk(Map const& map, bool ascending)
{
    std::map<int, int> found;
    Map::Iterator iterator(map);
    EXPECT_EQ(iterator.Current(), nullptr);
    int last = 0;
    for (ascending ? iterator.First() : iterator.Last(); iterator.Current() != nullptr; ascending ? iterator.Next() : iterator.Previous()) {
        Node const& node = *iterator.Current();
        EXPECT_TRUE(found.empty() || (ascending ? last < node.Key() : last > node.Key()));
        EXPECT_EQ(iterator.Top()->Node()->GetPtr(), &node);
        last = node.Key();
        found.emplace(last, node.Value().number);
    }
    ascending ? iterator.Next() : iterator.Previous();
    EXPECT_EQ(iterator.Current(), nullptr); // stays past the end
    return found;
}

class cow_BtreeTest : public testing::Test
{
protected:
    ~cow_BtreeTest() override { EXPECT_EQ(Value::s_alive, 0); }
};

TEST_F(cow_BtreeTest, BalancesByItsOwnRule)
{
    struct {
        std::vector<int> keys;
        char const* shape;
    } const cases[] = {
        {{}, "."},
        {{1, 2, 3}, "(. 1 (. 2 3))"}, // a missing child counts as 0
        {{1, 2, 3, 4}, "(1 2 (. 3 4))"},
        {{4, 3, 2, 1}, "((1 2 .) 3 4)"},
        {{3, 1, 2}, "((. 1 2) 3 .)"},          // the zig-zag stays
        {{1, 4, 3, 2}, "((. 1 (2 3 .)) 4 .)"}, // and is rotated once where an AVL tree would rotate twice
        {{1, 2, 3, 4, 5, 6, 7}, "((1 2 .) 3 (4 5 (. 6 7)))"},
    };
    for (auto const& [keys, shape] : cases) {
        SCOPED_TRACE(testing::PrintToString(keys));
        EXPECT_EQ(Shape(MakeMap(keys).Root()), shape);
    }
}

// Removing 0 lifts its only subtree, which is shared and leans so much that it is rotated at once: in a copy of its top.
TEST_F(cow_BtreeTest, RotatesASharedSubtreeThatReplacesItsParent)
{
    Map map = MakeMap({9, 7, 6, 8, 0, 3, 1, 2});
    map.Remove(7);
    Map const other(map);
    std::string const before = Text(other.Root(), false);

    map.Remove(0);

    EXPECT_EQ(Text(other.Root(), false), before);
    EXPECT_EQ(Walk(map, true), (std::map<int, int>{{1, 10}, {2, 20}, {3, 30}, {6, 60}, {8, 80}, {9, 90}}));
}

// Three maps that are copied from one another follow the model node by node, counts of sharers included, and three plain maps in content.
void FollowModels(int steps, int keyRange, unsigned seed)
{
    SCOPED_TRACE("keys below " + std::to_string(keyRange) + ", seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Map maps[3];
    ModelTree models[3];
    std::map<int, int> plain[3];
    for (int step = 0; step < steps; ++step) {
        std::size_t const a = random() % 3, b = random() % 3;
        int const key = static_cast<int>(random() % static_cast<unsigned>(keyRange));
        switch (random() % 16) {
        case 0:
            if (random() % 4 == 0) {
                maps[a] = maps[b];
                models[a] = models[b];
                plain[a] = std::map<int, int>(plain[b]);
            }
            break;
        case 1:
        case 2: {
            Value& value = maps[a].Lookup(key);
            ModelTree::Node* const node = models[a].Find(key);
            ASSERT_EQ(&value == &maps[a].Default(), node == nullptr);
            if (node != nullptr)
                value.number = node->value = plain[a][key] = step;
            break;
        }
        case 3:
        case 4: {
            bool const isMember = plain[a].contains(key);
            ASSERT_EQ(maps[a].IsMember(key), isMember);
            ASSERT_EQ(maps[a].ConstLookup(key).number, isMember ? plain[a][key] : 0);
            break;
        }
        case 5:
        case 6:
        case 7:
        case 8:
        case 9: {
            bool const isRemoved = models[a].Remove(key);
            ASSERT_EQ(isRemoved, plain[a].erase(key) != 0);
            ASSERT_EQ(maps[a].Remove(key), isRemoved);
            break;
        }
        default:
            bool const isInserted = models[a].InsertUnlessMember(key, step);
            ASSERT_EQ(isInserted, plain[a].emplace(key, step).second);
            ASSERT_EQ(maps[a].InsertUnlessMember(key, step), isInserted);
        }
        ASSERT_EQ(maps[a].Size(), models[a].size);
        if (step % 8 != 0 && keyRange > 100)
            continue;
        for (std::size_t k = 0; k < 3; ++k) {
            ASSERT_EQ(Text(maps[k].Root(), true), Text(models[k].root, true)) << "map " << k << " after step " << step;
            ASSERT_EQ(Walk(maps[k], step % 2 == 0), plain[k]);
        }
    }
}

TEST_F(cow_BtreeTest, FollowsAModelThroughRandomChanges)
{
    for (unsigned seed = 1; seed <= 3; ++seed) {
        FollowModels(1500, 6, seed);
        FollowModels(3000, 40, seed);
        FollowModels(3000, 1000, seed);
    }
}

// The order is that of the wrapped difference. Keys further apart are misordered, but every operation stays defined.
TEST_F(cow_BtreeTest, ComparesKeysByTheirWrappedDifference)
{
    int const keys[] = {INT_MIN, INT_MIN + 1, -2, -1, 0, 1, 2, INT_MAX - 1, INT_MAX};
    Map wrapped;
    wrapped.InsertUnlessMember(INT_MAX, 1);
    wrapped.InsertUnlessMember(INT_MIN, 2);
    EXPECT_EQ(Shape(wrapped.Root()), "(. 2147483647 -2147483648)");
    std::mt19937 random(5);
    Map map;
    ModelTree model;
    for (int step = 0; step < 3000; ++step) {
        int const key = keys[random() % std::size(keys)];
        if (random() % 2 == 0)
            ASSERT_EQ(map.InsertUnlessMember(key, step), model.InsertUnlessMember(key, step));
        else
            ASSERT_EQ(map.Remove(key), model.Remove(key));
        ASSERT_EQ(map.IsMember(key), model.Find(key) != nullptr);
        ASSERT_EQ(Text(map.Root(), true), Text(model.root, true));
    }
}

// After a failure the map has the keys, values, heights and shape it had; the copies that share with it have theirs.
TEST_F(cow_BtreeTest, IsUnchangedWhenMemoryEnds)
{
    std::mt19937 random(7);
    for (int round = 0; round < 1000; ++round) {
        Map map;
        ModelTree model;
        for (int k = 0; k < 60; ++k) {
            int const key = static_cast<int>(random() % 60);
            bool const remove = random() % 3 == 0;
            remove ? map.Remove(key) : map.InsertUnlessMember(key, k);
            remove ? model.Remove(key) : model.InsertUnlessMember(key, k);
        }
        Map const other(map);
        std::string const before = Text(map.Root(), false);
        int const size = map.Size(), key = static_cast<int>(random() % 60);
        bool const remove = random() % 2 == 0, member = map.IsMember(key);
        for (int successes = 0;; ++successes) {
            mem_FailAllocationAfter(successes);
            try {
                EXPECT_EQ(remove ? map.Remove(key) : map.InsertUnlessMember(key, -1), remove == member);
                mem_FailAllocationAfter(-1);
                break;
            } catch (mem_OutOfMemory const&) {
            }
            ASSERT_EQ(Text(map.Root(), false), before);
            ASSERT_EQ(Text(other.Root(), false), before);
            ASSERT_EQ(map.Size(), size);
            ASSERT_LT(successes, 200);
        }
        remove ? model.Remove(key) : model.InsertUnlessMember(key, -1);
        ASSERT_EQ(Text(map.Root(), false), Text(model.root, false));
        ASSERT_EQ(Text(other.Root(), false), before);
    }
}

TEST_F(cow_BtreeTest, IteratorIsPastTheEndWhenMemoryEnds)
{
    Map const map = MakeMap({8, 4, 12, 2, 6, 10, 14, 1, 3, 5, 7});
    Map::Iterator iterator(map);
    for (int successes = 0; successes < 3; ++successes) {
        mem_FailAllocationAfter(successes);
        EXPECT_THROW(iterator.First(), mem_OutOfMemory);
        EXPECT_EQ(iterator.Current(), nullptr);
    }
    mem_FailAllocationAfter(-1);
    iterator.Last();
    EXPECT_EQ(iterator.Current()->Key(), 14);
    iterator.Previous();
    iterator.Next(); // both ways in one walk
    EXPECT_EQ(iterator.Current()->Key(), 14);
}

TEST_F(cow_BtreeTest, AssignmentSharesAndMovingTakes)
{
    Map a = MakeMap({1, 2, 3}), b = MakeMap({7});
    a = static_cast<Map const&>(a);
    EXPECT_EQ(a.Root()->Count(), 1);
    b = a;
    EXPECT_EQ(b.Root()->GetPtr(), a.Root()->GetPtr());
    EXPECT_EQ(b.Size(), 3);
    Handle const* const root = a.Root();
    Map c(std::move(a));
    EXPECT_EQ(c.Root(), root);
    EXPECT_EQ(a.Size(), 0); // NOLINT: what a moved-from map is, is promised
    EXPECT_FALSE(a.Remove(1));
    b = Map();
    EXPECT_EQ(c.Root()->Count(), 1);
    EXPECT_EQ(b.Size(), 0);
}

// Eight nodes fill the pool's first slab; a ninth place would be a second allocation beside that of the handle.
TEST_F(cow_BtreeTest, UsesThePlacesOfRemovedNodesAgain)
{
    auto first = std::make_unique<Map>(MakeMap({1, 2, 3, 4, 5, 6, 7, 8}));
    Map map(*first);
    first.reset(); // the copy keeps the pool
    for (int k = 9; k < 50; ++k) {
        ASSERT_TRUE(map.Remove(k - 4));
        mem_FailAllocationAfter(1);
        EXPECT_TRUE(map.InsertUnlessMember(k, k));
        mem_FailAllocationAfter(-1);
    }
    EXPECT_THROW(
        {
            mem_FailAllocationAfter(1);
            map.InsertUnlessMember(0, 0);
        },
        mem_OutOfMemory);
    mem_FailAllocationAfter(-1);
    EXPECT_EQ(map.Size(), 8);
}

// The instance that the library exports.
TEST(cow_BtreeOfMatrices, ReportsNullForAMissingId)
{
    cow_Btree<int, KVOSrvDenseMatrix*> map;
    auto* const matrix = reinterpret_cast<KVOSrvDenseMatrix*>(&map);
    EXPECT_TRUE(map.InsertUnlessMember(5, matrix));
    EXPECT_EQ(map.ConstLookup(5), matrix);
    EXPECT_EQ(map.ConstLookup(6), nullptr);
}

} // namespace
