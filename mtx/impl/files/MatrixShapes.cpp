#include "MatrixShapes.h"

#include "MatrixText.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace
{

/// The first integers of a file; false when it is shorter.
template<int count>
bool Take(std::string_view begin, std::int32_t (&words)[count])
{
    if (begin.size() < sizeof words)
        return false;
    std::memcpy(words, begin.data(), sizeof words);
    return true;
}

} // namespace

// A record of one integer, the order, and the begin of that of the first row: its length, and the number of its entries.
bool MatrixShapes::LooksLikeRecords(std::string_view begin, std::int64_t fileBytes)
{
    std::int32_t first[3], row[5];
    if (!Take(begin, first) || first[0] != 4 || first[1] < 0 || first[2] != 4)
        return false;
    if (first[1] == 0)
        return fileBytes == sizeof first;
    return Take(begin, row) && row[4] >= 1 && (row[3] < 0 || row[3] == 4 + 12 * std::int64_t{row[4]});
}

bool MatrixShapes::LooksLikeChunks(std::string_view begin, std::int64_t fileBytes)
{
    std::int32_t words[6]; // order, entries, chunks, storage, logarithm of the length of a chunk, 1
    if (!Take(begin, words) || words[0] < 0 || words[1] < 0 || words[4] < 0 || words[4] > 30 || words[5] != 1)
        return false;
    std::int64_t const length = std::int64_t{1} << words[4];
    return words[2] == std::max<std::int64_t>(1, (words[1] + length - 1) / length) &&
           fileBytes >= std::int64_t{sizeof words} + 4 + 12 * (std::int64_t{words[0]} + words[1]);
}

bool MatrixShapes::LooksLikeDense(std::string_view begin, std::int64_t fileBytes)
{
    std::int32_t words[4];
    return Take(begin, words) && words[0] >= 0 && words[1] >= 0 && words[0] == words[2] && words[1] == words[3] &&
           (fileBytes - std::int64_t{sizeof words}) / 8 >= std::int64_t{words[0]} * words[1];
}

bool MatrixShapes::LooksLikeTriplets(std::string_view begin)
{
    std::string text(begin);
    text += '\n'; // a number ends in white space
    char* const end = text.data() + text.size();
    char* next = text.data();
    auto const skipSpace = [&] { next = std::find_if_not(next, end, MatrixText::IsSpace); };
    int index;
    for (int k = 0; k < 2; ++k) {
        skipSpace();
        if (next == end || (next = MatrixText::ReadIndex(next, index)) == nullptr)
            return false;
    }
    double value;
    skipSpace();
    return next != end && MatrixText::ReadValue(next, end, value) != nullptr;
}
