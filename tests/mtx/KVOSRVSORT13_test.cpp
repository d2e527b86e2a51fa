#include "Dense.h"
#include "KVOFortran.h"

#include <array>
#include <numeric>

namespace
{

// A key and where it came from.
using Item = std::pair<double, int>;
using Items = std::vector<Item>;

// The sort in its plainest form, places 1 to n: items are moved one by one through a real hole. at() ends a scan that runs away.
struct PlainSort {
    void Sort(int l, int r)
    {
        if (r - l < 10) {
            std::ranges::stable_sort(items.begin() + l - 1, items.begin() + r, {}, &Item::first); // by insertion
            return;
        }
        int const j = Partition(l, r);
        Sort(l, j - 1);
        Sort(j + 1, r);
    }

    Item& At(int place) { return items.at(static_cast<std::size_t>(place) - 1); }

    // Takes the median of the first, the middle and the last item out; the smallest goes to the middle, the largest to the end.
    Item TakeMedian(int l, int r)
    {
        Item const left = At(l), middle = At((l + r) / 2), right = At(r);
        std::array ordered{right, middle, left};
        std::ranges::stable_sort(ordered, {}, &Item::first);
        if (left.first == right.first && middle.first < left.first)
            std::swap(ordered[1], ordered[2]);
        At((l + r) / 2) = ordered[0];
        At(r) = ordered[2];
        return ordered[1];
    }

    int Partition(int l, int r)
    {
        Item const pivot = TakeMedian(l, r);
        int i = l;
        for (int j = r;; --j) {
            while (At(j).first > pivot.first)
                --j;
            if (j <= i) {
                At(i) = pivot;
                return i;
            }
            At(i) = At(j);
            ++i;
            while (At(i).first < pivot.first)
                ++i;
            if (j <= i) {
                At(j) = pivot;
                return j;
            }
            At(j) = At(i);
        }
    }

    Items items;
};

// Kinds of keys: distinct, few, two that are equal though not in their bits, one, sorted, reversed, organ pipe, saw tooth.
constexpr int kKinds = 8;
Items MakeItems(int kind, int n, std::mt19937& random)
{
    Items items;
    for (int k = 0; k < n; ++k) {
        double const distinct = std::uniform_real_distribution<>(-1.0, 1.0)(random), few = static_cast<double>(random() % 12),
                     zero = random() % 2 != 0 ? 0.0 : -0.0, infinity = std::numeric_limits<double>::infinity();
        double const candidates[kKinds] = {distinct, few, zero, infinity, k / 3 * 1.0, -1.0 * k, std::min(k, n - k) * 1.0, k % 70 * 1.0};
        items.emplace_back(candidates[kind], k);
    }
    return items;
}

// The items as the routine orders them; their origins are the tags, and tell what the columns must hold.
Items Sorted(Items items, int nrow)
{
    int const n = static_cast<int>(items.size());
    int status = 77;
    std::vector<double> keys, columns(items.size() * nrow);
    std::vector<int> tags;
    for (auto const& [key, origin] : items) {
        keys.push_back(key);
        tags.push_back(origin);
    }
    std::iota(columns.begin(), columns.end(), 0.0);
    KVOSRVSORT13(keys.data(), columns.data(), tags.data(), &nrow, &n, &status);
    EXPECT_EQ(status, 0);
    int misplaced = 0;
    for (int k = 0; k < n; ++k) {
        items[k] = {keys[k], tags[k]};
        for (int row = 0; row < nrow; ++row)
            misplaced += columns[std::ptrdiff_t{k} * nrow + row] != double{1} * tags[k] * nrow + row;
    }
    EXPECT_EQ(misplaced, 0);
    return items;
}

bool Same(Items const& a, Items const& b)
{
    return std::ranges::equal(a, b, [](Item const& x, Item const& y) { return SameBits(x.first, y.first) && x.second == y.second; });
}

// Callers see in which order equal keys come out: every item must end where the plain sort puts it. Sizes lie around the insertion limit,
// one and two blocks of the scans; row counts around the specialised ones and the pieces of a long column.
TEST(KVOSRVSORT13, OrdersItemsAsThePlainSortDoes)
{
    std::mt19937 random(13);
    std::vector<std::pair<int, int>> sizes{{255, 1}, {256, 1}, {257, 1}, {1000, 1}, {4099, 1}}; // n, nrow
    for (int n = 1; n <= 200; ++n)
        sizes.emplace_back(n, n % 2);
    for (int const nrow : {2, 3, 4, 5, 6, 7, 8, 9, 127, 128, 129, 300})
        for (int const n : {10, 11, 64, 65, 66, 67, 131, 500})
            sizes.emplace_back(n, nrow);
    for (auto const& [n, nrow] : sizes)
        for (int kind = 0; kind < kKinds; ++kind) {
            PlainSort expected{MakeItems(kind, n, random)};
            Items const sorted = Sorted(expected.items, nrow);
            expected.Sort(1, n);
            ASSERT_TRUE(std::ranges::is_sorted(expected.items, {}, &Item::first));
            EXPECT_TRUE(Same(sorted, expected.items)) << "n " << n << ", nrow " << nrow << ", keys " << kind;
        }
    for (int kind = 0; kind < kKinds; ++kind) // the stack holds
        EXPECT_TRUE(std::ranges::is_sorted(Sorted(MakeItems(kind, 100000, random), 0), {}, &Item::first));
}

TEST(KVOSRVSORT13, LosesNoItemWhenKeysAreNaN)
{
    std::mt19937 random(17);
    for (int const n : {2, 10, 11, 40, 64, 65, 66, 130, 1000, 20000})
        for (unsigned const percent : {1u, 30u, 95u, 100u}) {
            Items items = MakeItems(1, n, random);
            for (Item& item : items)
                if (random() % 100 < percent)
                    item.first = kNotANumber;
            Items after = Sorted(items, 2);
            std::ranges::sort(after, {}, &Item::second);
            EXPECT_TRUE(Same(after, items)) << "n " << n << ", NaN " << percent << " %";
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
