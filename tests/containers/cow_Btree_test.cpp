#include "cow_Btree.h"

#include "FailureSweep.h"

#include <climits>
#include <map>
#include <memory>
#include <random>
#include <vector>

namespace
{

// A value that tells how many of its kind exist.
struct Value {
    Value(int n = 0) : number(n) { ++s_alive; } // NOLINT: implicit on purpose
    Value(Value const& other) : number(other.number) { ++s_alive; }
    Value& operator=(Value const&) = default;
    ~Value() { --s_alive; }

    int number;
    static inline int s_alive = 0;
};

using Map = cow_Btree<int, Value>;
using Node = Map::Node;
using Handle = Map::Handle;

// A tree in one line: (left key^height right), the key alone of a leaf of height 0; with =value where that is not ten times the key.
std::string Text(Handle const* handle)
{
    if (handle == nullptr)
        return ".";
    Node const& node = handle->ConstGet();
    std::string text = std::to_string(node.Key());
    if (node.Value().number != std::int64_t{10} * node.Key())
        text += '=' + std::to_string(node.Value().number);
    if (node.Height() == 0 && node.Left() == nullptr && node.Right() == nullptr)
        return text;
    return '(' + Text(node.Left()) + ' ' + text + '^' + std::to_string(node.Height()) + ' ' + Text(node.Right()) + ')';
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
        std::vector<int> inserted, removed;
        char const* shape;
    } const cases[] = {
        {{}, {}, "."},
        {{1, 2, 3}, {}, "(. 1^2 (. 2^1 3))"},            // a missing child counts as 0
        {{1, 4, 3}, {}, "(. 1^2 (3 4^1 .))"},            // the zig-zag stays
        {{1, 4, 3, 2}, {}, "((. 1^2 (2 3^1 .)) 4^3 .)"}, // and is rotated once where an AVL tree would rotate twice
        {{1, 2, 3, 4, 5, 6, 7}, {}, "((1 2^1 .) 3^3 (4 5^2 (. 6^1 7)))"},
        {{1}, {1}, "."},
        {{1, 2, 3}, {2}, "(. 1^1 3)"},
        {{2, 1, 3}, {2}, "(1 3^1 .)"},
        {{1, 2, 3, 4, 5, 6, 7}, {1}, "((2 3^1 4) 5^2 (. 6^1 7))"},
        {{1, 2, 3, 4, 5, 6, 7}, {3}, "((1 2^1 .) 4^3 (. 5^2 (. 6^1 7)))"},
        {{4, 2, 8, 1, 3, 6, 9, 7}, {4}, "((1 2^1 3) 6^2 (7 8^1 9))"},
        {{2, 1, 7, 4, 6, 5, 3}, {4}, "((1 2^1 3) 5^3 (6 7^2 .))"}, // 7 stays higher than it is,
        {{2, 1, 7, 4, 6, 5, 3}, {4, 6}, "((1 2^1 3) 5^2 7)"},      // up to the next removal below it
        // Removing 0 lifts its only subtree, which is shared and leans so much that it is rotated at once: in a copy of its top.
        {{9, 7, 6, 8, 0, 3, 1, 2}, {7, 0}, "((. 1^1 2) 3^2 (6 8^1 9))"},
    };
    for (auto const& [inserted, removed, shape] : cases) {
        Map map = MakeMap(inserted);
        for (int const key : removed) {
            Map const other(map);
            std::string const before = Text(other.Root());
            EXPECT_TRUE(map.Remove(key));
            EXPECT_EQ(Text(other.Root()), before);
        }
        EXPECT_EQ(Text(map.Root()), shape);
    }
}

// Three maps that are copied from one another follow three plain maps, also where memory ends in each change at each allocation.
void FollowPlainMaps(int steps, int keyRange, unsigned seed)
{
    std::mt19937 random(seed);
    Map maps[3];
    std::map<int, int> plain[3];
    for (int step = 0; step < steps; ++step) {
        std::size_t const a = random() % 3, b = random() % 3;
        int const key = static_cast<int>(random() % static_cast<unsigned>(keyRange));
        bool const isMember = plain[a].contains(key);
        unsigned const action = random() % 64;
        if (action == 0) {
            maps[a] = maps[b];
            plain[a] = std::map<int, int>(plain[b]);
        } else if (action == 1) {
            Map moved(std::move(maps[a]));
            EXPECT_EQ(maps[a].Size(), 0); // NOLINT: what a moved-from map is, is promised
            EXPECT_FALSE(maps[a].Remove(key));
            maps[a] = std::move(moved);
        } else if (action < 10) {
            Value& value = maps[a].Lookup(key);
            ASSERT_EQ(&value != &maps[a].Default(), isMember);
            if (isMember)
                value.number = plain[a][key] = step;
        } else if (action < 18) {
            ASSERT_EQ(maps[a].IsMember(key), isMember);
            ASSERT_EQ(maps[a].ConstLookup(key).number, isMember ? plain[a][key] : 0);
        } else {
            bool const remove = action < 38;
            auto const change = [&] {
                EXPECT_EQ(remove ? maps[a].Remove(key) : maps[a].InsertUnlessMember(key, step), remove == isMember);
            };
            // After a failure it has the keys, values, heights and shape it had.
            std::string const before = keyRange < 100 ? Text(maps[a].Root()) : "";
            auto const check = [&](bool threw) { EXPECT_TRUE(!threw || Text(maps[a].Root()) == before); };
            keyRange < 100 ? static_cast<void>(FailEach(Allocations(), change, check)) : change();
            if (remove)
                plain[a].erase(key);
            else
                plain[a].emplace(key, step);
        }
        for (std::size_t k = 0; k < 3 && (step % 8 == 0 || keyRange < 100); ++k) {
            ASSERT_EQ(Walk(maps[k], step % 2 == 0), plain[k]) << "map " << k << " after step " << step;
            ASSERT_EQ(maps[k].Size(), static_cast<int>(plain[k].size()));
        }
    }
}

TEST_F(cow_BtreeTest, FollowsPlainMapsThroughRandomChanges)
{
    for (unsigned seed = 1; seed <= 3; ++seed) {
        FollowPlainMaps(1500, 6, seed);
        FollowPlainMaps(3000, 40, seed);
        FollowPlainMaps(3000, 1000, seed);
    }
}

// The first change after a copy clones the path from the root, what a rotation touches, and nothing else; looking clones nothing.
TEST_F(cow_BtreeTest, ClonesThePathOnlyAndOnlyOnce)
{
    std::mt19937 random(11);
    Map map;
    for (int k = 0; k < 2000; ++k)
        map.InsertUnlessMember(static_cast<int>(random() % 4000), k);
    std::string const before = Text(map.Root());
    for (int round = 0; round < 300; ++round) {
        int const key = static_cast<int>(random() % 4000), path = map.Root()->ConstGet().Height() + 1;
        Map copy;
        copy = map;
        int const shared = Value::s_alive;
        copy.ConstLookup(key);
        EXPECT_EQ(Value::s_alive, shared);
        if (round % 3 == 0)
            copy.Lookup(key);
        else
            round % 3 == 1 ? copy.Remove(key) : copy.InsertUnlessMember(key, -1);
        EXPECT_LE(Value::s_alive, shared + path + 3);
        int const unshared = Value::s_alive;
        copy.Lookup(copy.Root()->ConstGet().Key()).number = -2;
        EXPECT_EQ(Value::s_alive, unshared);
    }
    EXPECT_EQ(Text(map.Root()), before);
}

// The order is that of the wrapped difference. Keys further apart are misordered, but every operation stays defined.
TEST_F(cow_BtreeTest, ComparesKeysByTheirWrappedDifference)
{
    int const keys[] = {INT_MIN, INT_MIN + 1, -2, -1, 0, 1, 2, INT_MAX - 1, INT_MAX};
    Map map;
    map.InsertUnlessMember(INT_MAX, 1);
    map.InsertUnlessMember(INT_MIN, 2);
    EXPECT_EQ(Text(map.Root()), "(. 2147483647=1^1 -2147483648=2)");
    int const others = Value::s_alive - map.Size();
    std::mt19937 random(5);
    for (int step = 0, size = 2; step < 3000; ++step) {
        int const key = keys[random() % std::size(keys)];
        size += random() % 2 == 0 ? map.InsertUnlessMember(key, step) : -map.Remove(key);
        ASSERT_EQ(map.Size(), size);
        ASSERT_EQ(Value::s_alive, others + size);
    }
}

TEST_F(cow_BtreeTest, IteratorIsPastTheEndWhenMemoryEnds)
{
    Map const map = MakeMap({8, 4, 12, 2, 6, 10, 14, 1, 3, 5, 7});
    Map::Iterator iterator(map);
    int const failures = FailEach(
        Allocations(), [&] { iterator.First(); }, [&](bool threw) { EXPECT_EQ(iterator.Current() == nullptr, threw); });
    EXPECT_GT(failures, 0);
    iterator.Last();
    EXPECT_EQ(iterator.Current()->Key(), 14);
    iterator.Previous();
    iterator.Next(); // both ways in one walk
    EXPECT_EQ(iterator.Current()->Key(), 14);
}

// Eight nodes fill the pool's first arena; a ninth place would be a second allocation beside that of the handle.
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

// Nodes that no map made, and handles of nodes that outlive their map.
TEST_F(cow_BtreeTest, NodesStandAlone)
{
    delete new Node(1, 2);
    cow_COW<Node> alone(new Node(3, 4)), shared(alone);
    shared.Get().Value() = 5;
    EXPECT_EQ(alone.ConstGet().Value().number, 4);

    auto map = std::make_unique<Map>(MakeMap({1, 2, 3, 4, 5}));
    cow_COW<Node> root(*map->Root());
    std::unique_ptr<Node> const copy(new Node(root.ConstGet()));
    std::string const tree = Text(&root);
    map.reset();
    EXPECT_EQ(Text(&root), tree);
    EXPECT_EQ(root.Get().Key(), copy->Key());
}

} // namespace
