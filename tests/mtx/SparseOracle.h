#pragma once

#include "Dense.h"
#include "ExpectThrows.h"
#include "FailureSweep.h"
#include "SparseFiles.h"

#include <fstream>
#include <map>
#include <numeric>
#include <sstream>
#include <utility>

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

inline std::vector<int> RandomPermutation(int n, unsigned seed)
{
    std::vector<int> perm(static_cast<std::size_t>(n));
    std::iota(perm.begin(), perm.end(), 0);
    std::shuffle(perm.begin(), perm.end(), std::mt19937(seed));
    return perm;
}

/// Arrays that a matrix takes over; they stay here where it refuses them.
struct SparseArrays {
    template<class T>
    using Array = std::unique_ptr<T[], mem_Deleter>;
    template<class T>
    static Array<T> Of(std::vector<T> const& list)
    {
        Array<T> array(static_cast<T*>(mem_Malloc(list.size() * sizeof(T))));
        std::ranges::copy(list, array.get());
        return array;
    }

    std::unique_ptr<KVOSrvSparseMatrix> Matrix(int rows, int columns)
    {
        auto matrix =
            std::make_unique<KVOSrvSparseMatrix>(rows, columns, rowStart.get(), columnIndices.get(), values.get(), diagonal.get());
        static_cast<void>((rowStart.release(), columnIndices.release(), values.release(), diagonal.release()));
        return matrix;
    }

    Array<unsigned> rowStart;
    Array<int> columnIndices;
    Array<double> values, diagonal{};
};

/// A half-stored matrix, through a file where the columns of a row do not ascend strictly within one triangle.
inline std::unique_ptr<KVOSrvSparseMatrix> HalfStored(Half const& half)
{
    std::vector<int> columns;
    std::vector<double> values;
    for (auto const& row : half.rows)
        for (auto const& [column, value] : row) {
            columns.push_back(column);
            values.push_back(value);
        }
    try {
        return SparseArrays{SparseArrays::Of(half.RowStart()), SparseArrays::Of(columns), SparseArrays::Of(values),
                            SparseArrays::Of(half.diagonal)}
            .Matrix(half.Size(), half.Size());
    } catch (KVOSrvMtxIllegalInput const&) {
        TemporaryFolder const folder;
        WriteFile(folder / "half", half.File(4));
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(0, 0);
        matrix->Import((folder / "half").c_str(), 1);
        return matrix;
    }
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

/// A Matrix Market file; what it holds of a symmetric matrix is also in `half`.
struct RealMatrix {
    explicit RealMatrix(std::string const& path)
    {
        std::ifstream file(path);
        std::string line;
        std::getline(file, line);
        symmetric = line.find("symmetric") != std::string::npos;
        while (std::getline(file, line) && line[0] == '%')
            ;
        int count = 0;
        std::istringstream(line) >> full.rows >> full.columns >> count;
        half = Half(full.rows);
        unsigned row = 0, column = 0;
        for (double value = 0; file >> row >> column >> value; --count) {
            (row == column ? half.diagonal[row - 1] : half.rows[row - 1].emplace_back(column - 1, 0.0).second) = value;
            full.Add(row - 1, column - 1, value);
            if (symmetric && row != column)
                full.Add(column - 1, row - 1, value);
        }
        EXPECT_TRUE(row > 0 && count == 0) << path;
    }

    bool symmetric;
    SparseOracle full{0, 0, {}};
    Half half{0};
};

/// Runs change() with each of its allocations failing in turn, up to the first run without a failure: `matrix` is as it was after each.
template<class Change>
void ExpectUnchangedWithoutMemory(KVOSrvSparseMatrix const& matrix, Change const& change)
{
    Content const before = ContentOf(matrix);
    int const failures = FailEach(Allocations(), change, [&](bool threw) { EXPECT_TRUE(!threw || ContentOf(matrix) == before); });
    EXPECT_GT(failures, 0) << "nothing was allocated";
}
