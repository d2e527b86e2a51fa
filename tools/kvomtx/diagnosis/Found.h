#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// Of what a diagnosis finds, so many of each kind are kept; the others are counted.
constexpr std::size_t kMostKept = 1000;

/// How many there are of a kind, and the first of them.
template<class T>
struct Found {
    std::int64_t count = 0;
    std::vector<T> first; ///< kMostKept at most

    void Add(T const& one)
    {
        ++count;
        if (first.size() < kMostKept)
            first.push_back(one);
    }
};

/// An entry and where its file has it.
struct EntryPlace {
    int row; ///< 0-based
    int column;
    double value = 0.0;
    std::int64_t line = 0; ///< of a text file, from 1; 0: not known
};

/// An entry that its file holds again; its values were summed.
struct RepeatedEntry {
    EntryPlace place;           ///< with the sum, and the line of the first one
    std::int64_t againLine = 0; ///< of the one that repeats it; 0: not known
};
