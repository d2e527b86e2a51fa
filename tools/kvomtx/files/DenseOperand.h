#pragma once

#include "Database.h"

#include "KVOSrvDenseMatrix.h"

#include <memory>
#include <string>

/// A stored dense matrix that a user named: one of a database, or a file, which is brought into a scratch matrix.
class DenseOperand
{
public:
    /// Needs the library's folder for scratch files (ScratchFolder).
    /// @throws ToolError kUnreadable
    DenseOperand(std::string const& text, std::string const& format);

    KVOSrvDenseMatrix const& Matrix() const noexcept { return *m_matrix; }

private:
    std::unique_ptr<InputDatabase> m_database;
    std::unique_ptr<KVOSrvDenseMatrix> m_matrix;
};

/// A new matrix of zeros in a database, in chunks that suit products. @param description  of what @param checksums  of its values
std::unique_ptr<KVOSrvDenseMatrix> MakeProduct(OutputDatabase& database, int rows, int columns, std::string const& description,
                                               bool checksums);
