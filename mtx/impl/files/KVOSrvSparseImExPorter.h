#pragma once

#include "CompressedRows.h"

#include <functional>
#include <span>
#include <utility>
#include <variant>

class KVOFsmSystemDofDefinition;

/// Reads and writes the files of sparse matrices, see docs/sparse-files.md for the formats.
namespace KVOSrvSparseImExPorter
{

using KVOSrvSparseSupport::CompressedRows;
using KVOSrvSparseSupport::HalfRows;

HalfRows ReadRecords(char const* path);                              // format 0
std::variant<CompressedRows, HalfRows> ReadChunks(char const* path); // 1
CompressedRows ReadTriplets(char const* path);                       // 2 and 3
HalfRows ReadHalfStoredChunks(char const* path);                     // 6
CompressedRows ReadDense(char const* path);                          // 7

// The entries alone, some at a time, for a reader whose memory is limited: as they stand in the file.
using TakeEntries = std::function<void(std::span<KVOSrvSparseMatrixEntry const>)>;
void ReadTriplets(char const* path, TakeEntries const& take);
std::pair<int, int> ReadDense(char const* path, TakeEntries const& take); // rows and columns

// What can be refused is refused before the file is touched.
void WriteTriplets(KVOSrvSparseRows const& rows, char const* path);      // format 3
void WriteExactTriplets(KVOSrvSparseRows const& rows, char const* path); // the same, values by their shortest digits
void WriteNodesAndDofs(KVOSrvSparseRows const& rows, char const* path, KVOFsmSystemDofDefinition const* dofs); // 4
void WriteCommaSeparated(KVOSrvSparseRows const& rows, char const* path);                                      // 5
void WriteChunks(KVOSrvSparseRows const& rows, char const* path);                                              // 6
void WriteDense(KVOSrvSparseRows const& rows, char const* path);                                               // 7

} // namespace KVOSrvSparseImExPorter
