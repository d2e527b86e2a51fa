#pragma once

#include <memory>
#include <string>

class KVOSimCSetID;
class KVOSimDistributionID;
class KVOSimPosition;
class KVOSrvSparseMatrix;
class SparseStructure;

/// Differences between a matrix and its transpose up to this share of its largest entry are rounding of the program that wrote it.
constexpr double kSymmetryTolerance = 1e-12;

/// The matrix of order n is symmetric up to rounding and free of infinities and NaN.
/// @param name  of the matrix, for the message
/// @throws ToolError kCannot with the place
void RequireSymmetric(SparseStructure const& matrix, std::string const& name);

/// Stores a symmetric matrix as a half-stored one: the mean of its triangles, the upper one kept. The library assembles in full storage
/// only; this is the way from there to half storage.
/// @param type  kept with the distribution  @param checksums  of its values
KVOSimDistributionID StoreHalf(SparseStructure const& matrix, KVOSimPosition& position, int type, KVOSimCSetID const& rows,
                               KVOSimCSetID const& columns, bool checksums);

/// The same matrix in half storage, by way of a scratch database in the library's folder for such.
std::unique_ptr<KVOSrvSparseMatrix> MakeHalfStored(SparseStructure const& matrix);
