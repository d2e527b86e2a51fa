#include "StateWords.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <locale>
#include <sstream>
#include <stdexcept>

void StateWords::Exchange(double& value)
{
    if (m_reads)
        value = m_words.at(m_next++);
    else
        m_words.push_back(value);
}

void StateWords::Exchange(int& value)
{
    auto word = static_cast<double>(value);
    Exchange(word);
    value = static_cast<int>(word);
}

void StateWords::Exchange(bool& value)
{
    int word = value ? 1 : 0;
    Exchange(word);
    value = word != 0;
}

void StateWords::Exchange(std::uint64_t& value)
{
    auto word = std::bit_cast<double>(value);
    Exchange(word);
    value = std::bit_cast<std::uint64_t>(word);
}

std::size_t StateWords::ExchangeSize(std::size_t size)
{
    std::uint64_t word = size;
    Exchange(word);
    if (m_reads && word > m_words.size() - m_next)
        throw std::out_of_range("StateWords");
    return word;
}

void StateWords::Exchange(std::vector<double>& values)
{
    std::size_t const size = ExchangeSize(values.size());
    if (m_reads) {
        auto const first = m_words.begin() + static_cast<std::ptrdiff_t>(m_next);
        values.assign(first, first + static_cast<std::ptrdiff_t>(size));
        m_next += size;
    } else {
        m_words.insert(m_words.end(), values.begin(), values.end());
    }
}

// The standard gives a generator's state as a text of numbers only.
void StateWords::Exchange(std::mt19937_64& generator)
{
    std::stringstream text;
    text.imbue(std::locale::classic());
    std::vector<std::uint64_t> words;
    if (!m_reads) {
        text << generator;
        for (std::uint64_t word; text >> word;)
            words.push_back(word);
    }
    ExchangeAll(words);
    if (m_reads) {
        for (std::uint64_t const word : words)
            text << word << ' ';
        text >> generator;
    }
}
