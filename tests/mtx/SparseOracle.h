#pragma once

#include "Dense.h"
#include "ExpectThrows.h"
#include "FailureSweep.h"
#include "SparseFiles.h"

#include <map>
#include <numeric>

/// What the tests of the sparse matrix compute with: a map from place to value.
struct SparseOracle {
    /// Adds up in the order of the calls.
    void Add(unsigned row, unsigned column, double value)
    {
        auto const [place, isNew] = places.try_emplace({row, column}, value);
        if (!isNew)
            place->second += value;
    }

    /// What a matrix of full storage shows: its entries row by row, columns ascending.
    Content ExpectedContent() const
    {
        Content content{rows, columns, static_cast<int>(places.size()), {}};
        for (auto const& [place, value] : places)
            content.entries.push_back(MakeEntry(place.first, place.second, value));
        return content;
    }

    /// A matrix of the same entries, assembled.
    std::unique_ptr<KVOSrvSparseMatrix> Matrix() const
    {
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(rows, columns);
        for (auto const& [place, value] : places)
            matrix->AddData(place.first, place.second, value);
        matrix->EndAssembly();
        return matrix;
    }

    int rows;
    int columns;
    std::map<std::pair<unsigned, unsigned>, double> places;
};

struct SparseShape {
    int rows, columns, entries;
};

/// `entries` random entries, some of them on equal places, many on few rows, some 0 or -0.0, all in no order.
inline std::vector<KVOSrvSparseMatrixEntry> RandomEntries(SparseShape const& shape, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<> value;
    auto const below = [&](int limit) { return static_cast<unsigned>(random() % static_cast<unsigned>(limit)); };
    std::vector<KVOSrvSparseMatrixEntry> entries;
    for (int k = 0; k < shape.entries; ++k) {
        unsigned const place = random() % 8;
        if (place == 0 && !entries.empty())
            entries.push_back(entries[below(k)]);
        else
            entries.push_back({place == 1 ? below(shape.rows) / 7 : below(shape.rows), below(shape.columns), value(random)});
        if (place == 2)
            entries.back().value = random() % 2 != 0 ? 0.0 : -0.0;
    }
    return entries;
}

inline SparseOracle RandomOracle(SparseShape const& shape, unsigned seed)
{
    SparseOracle oracle{shape.rows, shape.columns, {}};
    for (auto const& [row, column, value] : RandomEntries(shape, seed))
        oracle.Add(row, column, value);
    return oracle;
}

/// Of whole numbers, so that sums are exact in any order.
inline SparseOracle WholeNumbers(SparseShape const& shape, unsigned seed)
{
    SparseOracle oracle = RandomOracle(shape, seed);
    for (auto& entry : oracle.places)
        entry.second = std::round(4 * entry.second);
    return oracle;
}

inline std::vector<int> RandomPermutation(int n, unsigned seed)
{
    std::vector<int> perm(static_cast<std::size_t>(n));
    std::iota(perm.begin(), perm.end(), 0);
    std::shuffle(perm.begin(), perm.end(), std::mt19937(seed));
    return perm;
}

/// A half-stored matrix of any rows, which only a file can have.
inline std::unique_ptr<KVOSrvSparseMatrix> HalfStored(Half const& half)
{
    TemporaryFolder const folder;
    WriteFile(folder / "half", half.File(4));
    auto matrix = std::make_unique<KVOSrvSparseMatrix>(0, 0);
    matrix->Import((folder / "half").c_str(), 1);
    return matrix;
}

/// The entries of half storage in full.
inline SparseOracle FullOracle(Half const& half)
{
    SparseOracle oracle{half.Size(), half.Size(), {}};
    for (auto const& [row, column, bits] : half.Entries())
        oracle.Add(row, column, std::bit_cast<double>(bits));
    return oracle;
}

/// op(a) x, in the order of the entries; `more` rows of zeros follow.
inline Dense ProductOf(SparseOracle const& a, Dense const& x, bool transpose, int more = 0)
{
    Dense y((transpose ? a.columns : a.rows) + more, x.columns);
    for (auto const& [place, value] : a.places) {
        auto const [to, from] = transpose ? std::pair(place.second, place.first) : place;
        for (int j = 0; j < x.columns; ++j)
            y.At(static_cast<int>(to), j) += value * x.At(static_cast<int>(from), j);
    }
    return y;
}

/// Runs change() with each of its allocations failing in turn, up to the first run without a failure: `matrix` is as it was after each.
/// Returns how many there are.
template<class Change>
int ExpectUnchangedWithoutMemory(KVOSrvSparseMatrix const& matrix, Change const& change)
{
    Content const before = ContentOf(matrix);
    int const failures = FailEach(Allocations(), change, [&](bool threw) { EXPECT_TRUE(!threw || ContentOf(matrix) == before); });
    EXPECT_GT(failures, 0) << "nothing was allocated";
    return failures;
}

/// Imports, with every allocation failing once before.
inline void ImportWithoutMemory(KVOSrvSparseMatrix& matrix, std::string const& path, std::string const& bytes, int format)
{
    WriteFile(path, bytes);
    ExpectUnchangedWithoutMemory(matrix, [&] { matrix.Import(path.c_str(), format); });
}
