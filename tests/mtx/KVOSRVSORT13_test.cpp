#include "KVOFortran.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace
{

struct Item {
    double key;
    int tag;
    std::vector<double> column;
};

// The sort in its plainest form, places 1 to n: items are moved one by one through a real hole. at() ends a scan that runs away.
class PlainSort
{
public:
    explicit PlainSort(std::vector<Item>& items) : m_items(items) {}

    void Sort(int l, int r)
    {
        if (r - l < 10) {
            Insert(l, r);
            return;
        }
        int const j = Partition(l, r);
        Sort(l, j - 1);
        Sort(j + 1, r);
    }

private:
    Item& At(int place) { return m_items.at(static_cast<std::size_t>(place) - 1); }
    double Key(int place) { return At(place).key; }

    void Insert(int l, int r)
    {
        for (int i = l + 1; i <= r; ++i) {
            Item const held = At(i);
            int gap = i;
            for (; gap > l && Key(gap - 1) > held.key; --gap)
                At(gap) = At(gap - 1);
            At(gap) = held;
        }
    }

    Item TakeMedian(int l, int r)
    {
        int const m = (l + r) / 2;
        Item const left = At(l), middle = At(m), right = At(r);
        auto const take = [&](Item const& smallest, Item const& median, Item const& largest) {
            At(m) = smallest;
            At(r) = largest;
            return median;
        };
        if (middle.key > left.key) {
            if (!(right.key > left.key))
                return take(right, left, middle);
            return right.key > middle.key ? take(left, middle, right) : take(left, right, middle);
        }
        if (!(right.key > middle.key))
            return take(right, middle, left);
        return left.key > right.key ? take(middle, right, left) : take(middle, left, right);
    }

    int Partition(int l, int r)
    {
        Item const pivot = TakeMedian(l, r);
        int i = l;
        for (int j = r;; --j) {
            while (Key(j) > pivot.key)
                --j;
            if (j <= i) {
                At(i) = pivot;
                return i;
            }
            At(i) = At(j);
            ++i;
            while (Key(i) < pivot.key)
                ++i;
            if (j <= i) {
                At(j) = pivot;
                return j;
            }
            At(j) = At(i);
        }
    }

    std::vector<Item>& m_items;
};

struct Arrays {
    Arrays(std::vector<double> const& k, int nrow) : keys(k), tags(k.size()), columns(k.size() * static_cast<std::size_t>(nrow))
    {
        std::iota(tags.begin(), tags.end(), -3);
        std::iota(columns.begin(), columns.end(), 0.5);
    }

    std::vector<Item> Items(int nrow) const
    {
        std::vector<Item> items;
        for (std::size_t k = 0; k < keys.size(); ++k) {
            auto const column = columns.begin() + static_cast<std::ptrdiff_t>(k) * nrow;
            items.push_back({keys[k], tags[k], {column, column + nrow}});
        }
        return items;
    }

    int Sort(int nrow)
    {
        int const n = static_cast<int>(keys.size());
        int status = 77;
        KVOSRVSORT13(keys.data(), columns.data(), tags.data(), &nrow, &n, &status);
        return status;
    }

    std::vector<double> keys;
    std::vector<int> tags;
    std::vector<double> columns;
};

bool SameItems(std::vector<Item> const& a, std::vector<Item> const& b)
{
    return std::ranges::equal(a, b, [](Item const& x, Item const& y) {
        return std::bit_cast<std::uint64_t>(x.key) == std::bit_cast<std::uint64_t>(y.key) && x.tag == y.tag && x.column == y.column;
    });
}

enum class Keys { kDistinct, kFew, kTwo, kEqual, kSorted, kReversed, kPipe, kSawTooth };

std::vector<double> MakeKeys(Keys kind, int n, std::mt19937& random)
{
    std::vector<double> keys;
    for (int k = 0; k < n; ++k) {
        switch (kind) {
        case Keys::kDistinct:
            keys.push_back(std::uniform_real_distribution<>(-1.0, 1.0)(random));
            break;
        case Keys::kFew:
            keys.push_back(static_cast<double>(random() % 12));
            break;
        case Keys::kTwo:
            keys.push_back(random() % 2 != 0 ? 0.0 : -0.0);
            break; // equal, but their bits tell them apart
        case Keys::kEqual:
            keys.push_back(std::numeric_limits<double>::infinity());
            break;
        case Keys::kSorted:
            keys.push_back(k / 3);
            break;
        case Keys::kReversed:
            keys.push_back(-k);
            break;
        case Keys::kPipe:
            keys.push_back(std::min(k, n - k));
            break;
        case Keys::kSawTooth:
            keys.push_back(k % 70);
            break;
        }
    }
    return keys;
}

constexpr Keys kAllKinds[] = {Keys::kDistinct, Keys::kFew,      Keys::kTwo,  Keys::kEqual,
                              Keys::kSorted,   Keys::kReversed, Keys::kPipe, Keys::kSawTooth};

void ExpectPlainOrder(int n, int nrow, std::mt19937& random)
{
    for (Keys const kind : kAllKinds) {
        SCOPED_TRACE("n " + std::to_string(n) + ", nrow " + std::to_string(nrow) + ", keys " + std::to_string(static_cast<int>(kind)));
        Arrays arrays(MakeKeys(kind, n, random), nrow);
        std::vector<Item> expected = arrays.Items(nrow);
        PlainSort(expected).Sort(1, n);

        EXPECT_EQ(arrays.Sort(nrow), 0);

        EXPECT_TRUE(SameItems(arrays.Items(nrow), expected));
        EXPECT_TRUE(std::ranges::is_sorted(arrays.keys));
    }
}

TEST(KVOSRVSORT13, CarriesTagsAndColumns)
{
    double keys[] = {3, 1, 2}, columns[] = {7, 8, 9};
    int tags[] = {10, 20, 30};
    int const nrow = 1, n = 3;
    int status = 77;

    KVOSRVSORT13(keys, columns, tags, &nrow, &n, &status);

    EXPECT_EQ(std::vector<double>(keys, keys + 3), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(std::vector<int>(tags, tags + 3), (std::vector<int>{20, 30, 10}));
    EXPECT_EQ(std::vector<double>(columns, columns + 3), (std::vector<double>{8, 9, 7}));
    EXPECT_EQ(status, 0);
}

// Callers see in which order equal keys come out: every item must end where the plain sort puts it. Sizes lie around the insertion limit,
// one and two blocks of the scans; row counts around the specialised ones and the pieces of a long column.
TEST(KVOSRVSORT13, OrdersItemsAsThePlainSortDoes)
{
    std::mt19937 random(13);
    for (int n = 1; n <= 200; ++n)
        ExpectPlainOrder(n, n % 2, random);
    for (int const n : {255, 256, 257, 1000, 4099})
        ExpectPlainOrder(n, 1, random);
    for (int const nrow : {2, 3, 4, 5, 6, 7, 8, 9, 127, 128, 129, 300})
        for (int const n : {10, 11, 64, 65, 66, 67, 131, 500})
            ExpectPlainOrder(n, nrow, random);
}

TEST(KVOSRVSORT13, LosesNoItemWhenKeysAreNaN)
{
    std::mt19937 random(17);
    for (int const n : {2, 10, 11, 40, 64, 65, 66, 130, 1000, 20000})
        for (unsigned const percent : {1u, 30u, 95u, 100u}) {
            SCOPED_TRACE("n " + std::to_string(n) + ", NaN " + std::to_string(percent) + " %");
            std::vector<double> keys = MakeKeys(Keys::kFew, n, random);
            for (double& key : keys)
                if (random() % 100 < percent)
                    key = std::numeric_limits<double>::quiet_NaN();
            Arrays arrays(keys, 2);
            std::vector<Item> const before = arrays.Items(2);

            EXPECT_EQ(arrays.Sort(2), 0);

            std::vector<Item> after = arrays.Items(2);
            std::ranges::sort(after, {}, &Item::tag);
            EXPECT_TRUE(SameItems(after, before));
        }
}

TEST(KVOSRVSORT13, NeedsNoArraysForNothing)
{
    double key = 5.0;
    int tag = 6;
    for (int const n : {-4, 0, 1})
        for (int const nrow : {-1, 0, 3}) {
            int status = 77;
            KVOSRVSORT13(n == 1 ? &key : nullptr, nullptr, n == 1 ? &tag : nullptr, &nrow, &n, &status);
            EXPECT_EQ(status, 0) << n << ' ' << nrow;
        }
    EXPECT_EQ(std::pair(key, tag), std::pair(5.0, 6));

    double keys[] = {2, 1};
    int tags[] = {2, 1};
    int const negative = -1, two = 2;
    int status = 77;
    KVOSRVSORT13(keys, nullptr, tags, &negative, &two, &status);
    EXPECT_EQ(std::pair(keys[0], tags[0]), std::pair(1.0, 1));
    EXPECT_EQ(status, 0);
}

TEST(KVOSRVSORT13, StackHoldsForLongOrderedInput)
{
    std::mt19937 random(19);
    for (Keys const kind : kAllKinds) {
        Arrays arrays(MakeKeys(kind, 100000, random), 0);
        EXPECT_EQ(arrays.Sort(0), 0);
        EXPECT_TRUE(std::ranges::is_sorted(arrays.keys));
    }
}

} // namespace
