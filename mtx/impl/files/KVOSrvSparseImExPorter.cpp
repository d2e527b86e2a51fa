// Which reader and which writer each format has.

#include "KVOSrvSparseImExPorter.h"

#include "InputText.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvProductMemory.h"
#include "KVOSrvSparseMatrixContent.h"
#include "MalformedFile.h"

#include <tuple>
#include <utility>

using namespace KVOSrvSparseImExPorter;

namespace
{

constexpr char kSource[] = "mtx/impl/KVOSrvSparseImExPorter";

// Whether reading this file the quick way may take more than the limit of this thread, by its size.
bool MayOutgrowLimit(char const* path, int format)
{
    std::int64_t const limit = KVOSrvProductMemory::Bytes();
    if (limit == 0 || (format != 2 && format != 3 && format != 7))
        return false;
    constexpr std::int64_t kShortestRecord = 6,
                           kBytesPerRecord = 32; // of text: three digits and white space; the entry, and sorted once more
    if (format == 7)
        return 2 * InputFile(path).Size() > limit;
    InputText const text(path);
    return text.IsCompressed() || text.FileBytes() / kShortestRecord * kBytesPerRecord > limit;
}

} // namespace

void KVOSrvSparseMatrix::Import(char const* path, int format)
{
    WithPathOf(path, [&] {
        if (MayOutgrowLimit(path, format))
            return ImportWithinLimit(path, format);
        switch (format) {
        case 0:
            return Take(ReadRecords(path));
        case 1:
            return std::visit([this](auto&& rows) { Take(std::move(rows)); }, ReadChunks(path));
        case 2: // the two text formats differ only in the mode a file used to be opened with
        case 3:
            return Take(ReadTriplets(path));
        case 6: {
            HalfRows rows = ReadHalfStoredChunks(path);
            int const diagonal = rows.triangle.rows; // Deliberate: NumberOfNonzeros() counts it in for this format only
            return Take(std::move(rows), diagonal);
        }
        case 7:
            return Take(ReadDense(path));
        default:
            // Deliberate: the matrix counts as assembled from here on, although nothing was read.
            MarkAssembled();
            KVOSrvMtxUnsupportedImpFmt().Throw(kSource, 69);
        }
    });
}

// The other formats hold the arrays of the result.
void KVOSrvSparseMatrix::ImportWithinLimit(char const* path, int format)
{
    KVOSrvSparseMatrix read(0, 0);
    auto const take = [&read](std::span<KVOSrvSparseMatrixEntry const> entries) {
        for (auto const& [row, column, value] : entries)
            read.AddData(row, column, value);
    };
    if (format == 7)
        std::tie(read.m_rowCount, read.m_columnCount) = ReadDense(path, take);
    else
        ReadTriplets(path, take);
    read.EndAssembly();
    Take(std::move(std::get<CompressedRows>(read.m_content->rows)));
}

void KVOSrvSparseMatrix::Export(char const* path, int format, KVOFsmSystemDofDefinition const* dofs) const
{
    if (format < 3 || format > 7)
        KVOSrvMtxUnsupportedExpFmt().Throw(kSource, 154);
    RequireAssembled("Export");
    KVOSrvSparseRows const rows = View();
    switch (format) {
    case 3:
        return WriteTriplets(rows, path);
    case 4:
        return WriteNodesAndDofs(rows, path, dofs);
    case 5:
        return WriteCommaSeparated(rows, path);
    case 6:
        return WriteChunks(rows, path);
    default:
        return WriteDense(rows, path);
    }
}

void KVOSrvSparseMatrix::ExportTriplets(char const* path) const
{
    RequireAssembled("ExportTriplets");
    WriteExactTriplets(View(), path);
}
