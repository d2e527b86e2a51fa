#pragma once

#include "MatrixName.h"

/// What a file is, by its first bytes, that is not of `format`, and how to name it; empty when it is of no kind that is known.
std::string RecogniseOtherKind(std::string const& path, MatrixFormat format);
