#pragma once

#include "MatrixName.h"

#include <memory>
#include <string>

class FullMatrix;
class KVOFsmSystemDofDefinition;
class KVOSrvSparseMatrix;
class OutputDatabase;
class OutputFile;

/// Writes a sparse matrix in any format that can be written. The file comes into being with Commit().
class MatrixWriter
{
public:
    /// @param dofs  node and degree of freedom of each row, needed by format 4 only
    /// @param checksums  a database keeps checksums of the values
    /// @throws ToolError kUsage for a format that cannot be written, or not so, kUnwritable when the file cannot be made
    explicit MatrixWriter(MatrixName const& name, KVOFsmSystemDofDefinition const* dofs = nullptr, bool checksums = false);
    ~MatrixWriter();
    MatrixWriter(MatrixWriter const&) = delete;
    MatrixWriter& operator=(MatrixWriter const&) = delete;

    /// Writes all of the matrix, whatever its storage, under a temporary name. A matrix that equals its transpose is written as a symmetric
    /// one where the format knows such. Text triplets get a 0 at the last place where there is no entry in the last row or column, as their
    /// size is that of their largest indices.
    /// @throws ToolError kCannot when the format cannot hold this matrix
    /// @param source  what a database says of it: from where it was read, or who made it; may be null
    void Prepare(KVOSrvSparseMatrix const& matrix, MatrixName const* source = nullptr);
    void Commit();

private:
    void Export(KVOSrvSparseMatrix const& matrix) const;
    void ExportFull(FullMatrix const& matrix) const;
    void ExportHalf(KVOSrvSparseMatrix const& matrix) const;
    void Store(KVOSrvSparseMatrix const& matrix, MatrixName const* source);

    MatrixName m_name;
    KVOFsmSystemDofDefinition const* m_dofs;
    bool m_checksums;
    std::unique_ptr<OutputFile> m_file;         // of all formats but a database
    std::unique_ptr<OutputDatabase> m_database; // of a database
};
