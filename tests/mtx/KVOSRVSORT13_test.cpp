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

// A key and where it came from.
struct Item {
    double key;
    int origin;
};

// The sort in its plainest form, places 1 to n: items are moved one by one through a real hole. at() ends a scan that runs away.
struct PlainSort {
    void Sort(int l, int r)
    {
        if (r - l < 10) {
            std::ranges::stable_sort(items.begin() + l - 1, items.begin() + r, {}, &Item::key); // by insertion
            return;
        }
        int const j = Partition(l, r);
        Sort(l, j - 1);
        Sort(j + 1, r);
    }

    Item& At(int place) { return items.at(static_cast<std::size_t>(place) - 1); }

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
            while (At(j).key > pivot.key)
                --j;
            if (j <= i) {
                At(i) = pivot;
                return i;
            }
            At(i) = At(j);
            ++i;
            while (At(i).key < pivot.key)
                ++i;
            if (j <= i) {
                At(j) = pivot;
                return j;
            }
            At(j) = At(i);
        }
    }

    std::vector<Item> items;
};

// Kinds of keys: distinct, few, two that are equal though not in their bits, one, sorted, reversed, organ pipe, saw tooth.
constexpr int kKinds = 8;
std::vector<double> MakeKeys(int kind, int n, std::mt19937& random)
{
    std::vector<double> keys;
    for (int k = 0; k < n; ++k) {
        double const distinct = std::uniform_real_distribution<>(-1.0, 1.0)(random), few = static_cast<double>(random() % 12),
                     zero = random() % 2 != 0 ? 0.0 : -0.0, infinity = std::numeric_limits<double>::infinity();
        double const candidates[kKinds] = {distinct, few, zero, infinity, k / 3 * 1.0, -1.0 * k, std::min(k, n - k) * 1.0, k % 70 * 1.0};
        keys.push_back(candidates[kind]);
    }
    return keys;
}

// Sorts, and returns the items in their new order; each came with its tag and its column.
std::vector<Item> Sorted(std::vector<double> keys, int nrow)
{
    int const n = static_cast<int>(keys.size());
    int status = 77;
    std::vector<int> tags(keys.size());
    std::vector<double> columns(keys.size() * nrow);
    std::iota(tags.begin(), tags.end(), 0);
    std::iota(columns.begin(), columns.end(), 0.0);
    KVOSRVSORT13(keys.data(), columns.data(), tags.data(), &nrow, &n, &status);
    EXPECT_EQ(status, 0);
    std::vector<Item> items;
    int misplaced = 0;
    for (int k = 0; k < n; ++k) {
        items.push_back({keys[k], tags[k]});
        for (int row = 0; row < nrow; ++row)
            misplaced += columns[std::ptrdiff_t{k} * nrow + row] != double{1} * tags[k] * nrow + row;
    }
    EXPECT_EQ(misplaced, 0);
    return items;
}

std::vector<Item> Items(std::vector<double> const& keys)
{
    std::vector<Item> items;
    for (double const key : keys)
        items.push_back({key, static_cast<int>(items.size())});
    return items;
}

void ExpectSameItems(std::vector<Item> const& a, std::vector<Item> const& b)
{
    EXPECT_TRUE(std::ranges::equal(a, b, [](Item const& x, Item const& y) {
        return std::bit_cast<std::uint64_t>(x.key) == std::bit_cast<std::uint64_t>(y.key) && x.origin == y.origin;
    }));
}

// Callers see in which order equal keys come out: every item must end where the plain sort puts it. Sizes lie around the insertion limit,
// one and two blocks of the scans; row counts around the specialised ones and the pieces of a long column.
TEST(KVOSRVSORT13, OrdersItemsAsThePlainSortDoes)
{
    std::mt19937 random(13);
    std::vector<std::pair<int, int>> sizes; // n, nrow
    for (int n = 1; n <= 200; ++n)
        sizes.emplace_back(n, n % 2);
    for (int const n : {255, 256, 257, 1000, 4099})
        sizes.emplace_back(n, 1);
    for (int const nrow : {2, 3, 4, 5, 6, 7, 8, 9, 127, 128, 129, 300})
        for (int const n : {10, 11, 64, 65, 66, 67, 131, 500})
            sizes.emplace_back(n, nrow);
    for (auto const& [n, nrow] : sizes)
        for (int kind = 0; kind < kKinds; ++kind) {
            SCOPED_TRACE("n " + std::to_string(n) + ", nrow " + std::to_string(nrow) + ", keys " + std::to_string(kind));
            std::vector<double> const keys = MakeKeys(kind, n, random);
            PlainSort expected{Items(keys)};
            expected.Sort(1, n);
            ASSERT_TRUE(std::ranges::is_sorted(expected.items, {}, &Item::key));
            ExpectSameItems(Sorted(keys, nrow), expected.items);
        }
    for (int kind = 0; kind < kKinds; ++kind) // the stack holds
        EXPECT_TRUE(std::ranges::is_sorted(Sorted(MakeKeys(kind, 100000, random), 0), {}, &Item::key));
}

TEST(KVOSRVSORT13, LosesNoItemWhenKeysAreNaN)
{
    std::mt19937 random(17);
    for (int const n : {2, 10, 11, 40, 64, 65, 66, 130, 1000, 20000})
        for (unsigned const percent : {1u, 30u, 95u, 100u}) {
            SCOPED_TRACE("n " + std::to_string(n) + ", NaN " + std::to_string(percent) + " %");
            std::vector<double> keys = MakeKeys(1, n, random);
            for (double& key : keys)
                if (random() % 100 < percent)
                    key = std::numeric_limits<double>::quiet_NaN();

            std::vector<Item> after = Sorted(keys, 2);

            std::ranges::sort(after, {}, &Item::origin);
            ExpectSameItems(after, Items(keys));
        }
}

TEST(KVOSRVSORT13, NeedsNoArraysForNothing)
{
    for (int const n : {-4, 0}) {
        int status = 77;
        KVOSRVSORT13(nullptr, nullptr, nullptr, &n, &n, &status);
        EXPECT_EQ(status, 0) << n;
    }
}

} // namespace
