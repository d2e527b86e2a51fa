#include "KVOSrvSparseImExPorter.h"

#include "KVOSrvMtxExceptions.h"
#include "MalformedFile.h"

#include <utility>

namespace
{

constexpr char kSource[] = "mtx/impl/KVOSrvSparseImExPorter";

} // namespace

void KVOSrvSparseMatrix::Import(char const* path, int format)
{
    KVOSrvSparseImExPorter().Import(*this, path, format);
}

void KVOSrvSparseMatrix::Export(char const* path, int format, KVOFsmSystemDofDefinition const* dofs) const
{
    KVOSrvSparseImExPorter().Export(*this, path, format, dofs);
}

void KVOSrvSparseImExPorter::Import(KVOSrvSparseMatrix& matrix, char const* path, int format) const
{
    auto const reader = ReaderOf(format);
    if (reader == nullptr) {
        // Deliberate: the matrix counts as assembled from here on, although nothing was read.
        matrix.m_assembled = true;
        KVOSrvMtxUnsupportedImpFmt().Throw(kSource, 69);
    }
    KVOSrvSparseMatrix content(0, 0);
    WithPathOf(path, [&] { reader(content, path); });
    Replace(matrix, content);
}

KVOSrvSparseImExPorter::Reader KVOSrvSparseImExPorter::ReaderOf(int format) noexcept
{
    switch (format) {
    case 0:
        return ImportRecords;
    case 1:
        return ImportChunks;
    case 2: // the two text formats differ only in the mode a file used to be opened with
    case 3:
        return ImportTriplets;
    case 6:
        return ImportHalfStoredChunks;
    case 7:
        return ImportDense;
    default:
        return nullptr;
    }
}

void KVOSrvSparseImExPorter::Export(KVOSrvSparseMatrix const& matrix, char const* path, int format,
                                    KVOFsmSystemDofDefinition const* dofs) const
{
    if (format >= 3 && format <= 7) // another one is refused as such
        matrix.RequireAssembled("Export");
    switch (format) {
    case 3:
        return ExportTriplets(matrix, path);
    case 4:
        return ExportNodesAndDofs(matrix, path, dofs);
    case 5:
        return ExportCommaSeparated(matrix, path);
    case 6:
        return ExportChunks(matrix, path);
    case 7:
        return ExportDense(matrix, path);
    default:
        KVOSrvMtxUnsupportedExpFmt().Throw(kSource, 154);
    }
}

void KVOSrvSparseImExPorter::Replace(KVOSrvSparseMatrix& matrix, KVOSrvSparseMatrix& content) noexcept
{
    matrix.m_pendingEntries = std::move(content.m_pendingEntries);
    matrix.m_values = std::move(content.m_values);
    matrix.m_columnIndices = std::move(content.m_columnIndices);
    matrix.m_rowStart = std::move(content.m_rowStart);
    matrix.m_diagonal = std::move(content.m_diagonal);
    matrix.m_nonzeroCount = content.m_nonzeroCount;
    matrix.m_rowCount = content.m_rowCount;
    matrix.m_columnCount = content.m_columnCount;
    matrix.m_symmetryState = content.m_symmetryState;
    matrix.m_assembled = true;
}
