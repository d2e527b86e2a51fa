#pragma once

#include "KVOSrvSparseMatrix.h"

#include <cstdint>

class InputFile;
class KVOFsmSystemDofDefinition;

/// Reads and writes the files of sparse matrices, see docs/sparse-files.md for the formats. It has no state of its own.
class KVOSrvSparseImExPorter
{
public:
    /// KVOSrvSparseMatrix::Import. The content is read into a matrix of its own and moved over when it is complete and found sound.
    void Import(KVOSrvSparseMatrix& matrix, char const* path, int format) const;

    /// KVOSrvSparseMatrix::Export. What can be refused is refused before the file is touched.
    void Export(KVOSrvSparseMatrix const& matrix, char const* path, int format, KVOFsmSystemDofDefinition const* dofs) const;

private:
    // The readers fill an empty matrix; when they throw, nobody looks at it any more. A file that is malformed is a MalformedFile.
    using Reader = void (*)(KVOSrvSparseMatrix& matrix, char const* path);
    static Reader ReaderOf(int format) noexcept; // null: there is none
    static void ImportRecords(KVOSrvSparseMatrix& matrix, char const* path);
    static void ImportChunks(KVOSrvSparseMatrix& matrix, char const* path);
    static void ImportHalfStoredChunks(KVOSrvSparseMatrix& matrix, char const* path);
    static void ImportTriplets(KVOSrvSparseMatrix& matrix, char const* path);
    static void ImportDense(KVOSrvSparseMatrix& matrix, char const* path);

    static void ExportTriplets(KVOSrvSparseMatrix const& matrix, char const* path);
    static void ExportNodesAndDofs(KVOSrvSparseMatrix const& matrix, char const* path, KVOFsmSystemDofDefinition const* dofs);
    static void ExportCommaSeparated(KVOSrvSparseMatrix const& matrix, char const* path);
    static void ExportChunks(KVOSrvSparseMatrix const& matrix, char const* path);
    static void ExportDense(KVOSrvSparseMatrix const& matrix, char const* path);

    static void Replace(KVOSrvSparseMatrix& matrix, KVOSrvSparseMatrix& content) noexcept;
    static void ReadHalfStored(InputFile& file, KVOSrvSparseMatrix& matrix, int n, int offDiagonals, std::int64_t items,
                               std::int64_t chunkLength);
    static void TakeAscendingEntries(KVOSrvSparseMatrix& matrix, std::span<KVOSrvSparseMatrix::Entries const> blocks, int rows,
                                     int columns);
    static void AssembleFull(KVOSrvSparseMatrix& matrix, KVOSrvSparseMatrix const& half);

    /// The stored entries row by row, also of a matrix that has no row starts and therefore none.
    class Rows
    {
    public:
        explicit Rows(KVOSrvSparseMatrix const& matrix) noexcept : m_rowStart(matrix.m_rowStart.get()), m_count(matrix.m_rowCount) {}
        std::int64_t Begin(int row) const noexcept { return m_rowStart != nullptr ? m_rowStart[row] : 0; }
        std::int64_t End(int row) const noexcept { return m_rowStart != nullptr ? m_rowStart[row + 1] : 0; }
        std::int64_t Entries() const noexcept { return m_rowStart != nullptr ? m_rowStart[m_count] : 0; }

    private:
        unsigned const* m_rowStart;
        int m_count;
    };
};
