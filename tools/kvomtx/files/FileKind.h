#pragma once

#include <string>

/// What a file of another kind than expected is, by its first bytes, and how to name it; empty when it is none that is known.
std::string RecogniseOtherKind(std::string const& path);
