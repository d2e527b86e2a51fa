#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The one of `known` that `word` is most likely a slip of the fingers of, or the beginning of; empty when it is like none of them.
std::string NearestWord(std::string_view word, std::vector<std::string> const& known);
