#pragma once

#include <memory>
#include <string>

class KVOSrvSparseMatrix;
struct MatrixName;

/// Reads a sparse matrix from a file or a database.
/// @throws ToolError kUnreadable, telling the line or the byte and what was expected there; kUsage for a format that cannot be read
std::unique_ptr<KVOSrvSparseMatrix> ReadMatrix(MatrixName const& name);
std::unique_ptr<KVOSrvSparseMatrix> ReadMatrix(std::string const& text, std::string const& format);
