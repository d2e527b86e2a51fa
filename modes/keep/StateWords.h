#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

/// The numbers that a search needs to go on, one after the other: written, or read again in the same order. What has a state lists its
/// members once, for both.
class StateWords
{
public:
    /// To be written.
    StateWords() = default;
    /// To be read.
    explicit StateWords(std::vector<double> words) : m_words(std::move(words)), m_reads(true) {}

    bool Reads() const noexcept { return m_reads; }
    std::vector<double> const& Words() const noexcept { return m_words; }

    /// Writes the value, or reads it. @throws std::out_of_range when there is nothing left to read
    void Exchange(double& value);
    void Exchange(int& value);
    void Exchange(bool& value);
    void Exchange(std::uint64_t& value);
    void Exchange(std::vector<double>& values);
    void Exchange(std::mt19937_64& generator);
    /// A size and what is so long.
    template<class T>
    void ExchangeAll(std::vector<T>& values)
    {
        values.resize(ExchangeSize(values.size()));
        for (T& value : values)
            Exchange(value);
    }

private:
    std::size_t ExchangeSize(std::size_t size);

    std::vector<double> m_words;
    std::size_t m_next = 0; // to be read
    bool m_reads = false;
};
