#pragma once

#include <cstdint>
#include <string_view>

/// Whether the first bytes of a file without a mark are those of a format: what they say fits together, and the file's length.
namespace MatrixShapes
{

bool LooksLikeRecords(std::string_view begin, std::int64_t fileBytes);
bool LooksLikeChunks(std::string_view begin, std::int64_t fileBytes);
bool LooksLikeDense(std::string_view begin, std::int64_t fileBytes);
/// A first record of row, column and value.
bool LooksLikeTriplets(std::string_view begin);

} // namespace MatrixShapes
