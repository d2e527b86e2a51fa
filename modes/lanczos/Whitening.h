#pragma once

#include "Panel.h"

/// Combinations W of the columns of a basis whose Gram matrix G is given, in which it is the identity, W^T G W = I: as many as there are
/// columns that do not depend on others. Each column is combined with those before it in the order of their pivots only, so that columns
/// that are orthogonal already stay what they are, digit by digit.
/// @param gram      symmetric but for rounding; columns of 0 are left out
/// @param smallest  a column counts as dependent when a smaller share of its diagonal entry is left
Panel Whitening(Panel const& gram, double smallest);
