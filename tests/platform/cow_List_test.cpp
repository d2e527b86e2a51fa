#include "cow_List.h"

#include "FailureSweep.h"

#include <algorithm>

namespace
{

void ExpectSame(cow_List<int> const& list, std::vector<int> const& expected)
{
    std::vector<int> byIndex, byPieces;
    for (std::int64_t k = 0; k < list.Size(); ++k)
        byIndex.push_back(list[k]);
    for (int piece = 0; piece < list.PieceCount(); ++piece) {
        EXPECT_FALSE(list.Piece(piece).empty());
        byPieces.insert(byPieces.end(), list.Piece(piece).begin(), list.Piece(piece).end());
    }
    ASSERT_EQ(byIndex, expected);
    ASSERT_EQ(byPieces, expected);
}

// A list and the vector that it should equal.
struct Pair {
    explicit Pair(int size = 0)
    {
        for (int k = 0; k < size; ++k)
            Append(3 * k);
    }
    void Append(int value)
    {
        list.Append(value);
        expected.push_back(value);
    }
    void Truncate(int size)
    {
        list.Truncate(size);
        expected.resize(std::min(static_cast<std::size_t>(std::max(size, 0)), expected.size()));
    }
    void Drain()
    {
        std::vector<int> drained;
        list.Drain([&](std::span<int const> piece) { drained.insert(drained.end(), piece.begin(), piece.end()); });
        EXPECT_EQ(drained, std::exchange(expected, {}));
    }
    void Check() const { ExpectSame(list, expected); }

    cow_List<int> list;
    std::vector<int> expected;
};

// From sizes around the ends of the first three pieces, alone and while shared: each change follows the vector, is whole or not at all when
// memory ends, leaves a list that grows again, and is not seen by what shares its content.
TEST(cow_List, ChangesWhollyOrNotAtAllAndUnseenBySharers)
{
    int const sizes[] = {-1, 0, 1, 15, 16, 17, 47, 48, 49, 111, 112, 113}, drain = 1000, append = 1001;
    std::vector<int> changes(std::begin(sizes), std::end(sizes)); // by truncation, or
    changes.insert(changes.end(), {drain, append});
    for (int const from : sizes)
        for (int const change : changes)
            for (bool const shared : {false, true}) {
                SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(change) + (shared ? ", shared" : ""));
                Pair pair(from);
                Pair const other = shared ? pair : Pair();
                FailEach(
                    Allocations(), [&] { change == drain    ? pair.Drain()
                                         : change == append ? pair.Append(7)
                                                            : pair.Truncate(change); },
                    [&](bool) { pair.Check(); });
                for (int k = 0; k < 50; ++k)
                    pair.Append(-k);
                pair.Check();
                other.Check();
            }
}

TEST(cow_List, MovesAndAppendsItsOwnElements)
{
    for (int const size : {1, 15, 16, 48}) {
        Pair first(size), second(3);
        Pair const other = first;
        first.list.Append(first.list[0]); // must not be lost by the clone or the new piece
        first.expected.push_back(first.expected[0]);
        first.Check();
        other.Check();
        second.list = std::move(first.list);
        second.expected = std::exchange(first.expected, {});
        first.Append(1);
        for (Pair const* const pair : std::initializer_list<Pair const*>{&first, &second, &other})
            pair->Check();
    }
}

} // namespace
