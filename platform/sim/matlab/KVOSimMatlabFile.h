#pragma once

#include "KVOExport.h"
#include "KVOSimArray.h"
#include "atr_String.h"

#include <cstdint>
#include <memory>

/// A matrix in a .mat file.
struct KVOSimMatlabVariable {
    atr_String name;          ///< as in the workspace that was saved
    std::int64_t rows = 0;    ///< how many
    std::int64_t columns = 0; ///< how many
    std::int64_t entries = 0; ///< stored ones; of a dense matrix rows times columns
    bool isSparse = false;    ///< else its elements lie column by column
    bool isComplex = false;   ///< each value has two parts
};

/// A .mat file of MATLAB's level 7.3, which is an HDF5 file behind 512 bytes of text: its variables that are matrices of numbers, which are
/// read some at a time. Cells, structures, texts and arrays of more dimensions are not seen. Failures are KVOSimException with the path.
/// What the numbers mean is not checked: column starts and rows may be any.
class KVO_EXPORT KVOSimMatlabFile
{
public:
    /// Opens a file for reading. @throws KVOSimException also when it is of an older level, which is no HDF5 file
    explicit KVOSimMatlabFile(char const* path);
    ~KVOSimMatlabFile();
    KVOSimMatlabFile(KVOSimMatlabFile const&) = delete;
    KVOSimMatlabFile& operator=(KVOSimMatlabFile const&) = delete;

    /// The matrices in it, by name.
    KVOSimArray<KVOSimMatlabVariable> Variables() const;

    /// Chooses the matrix that is read from here on. @throws KVOSimException NotFound when there is no such one
    KVOSimMatlabVariable Select(char const* name);

    /// Of a sparse matrix: for `count` columns from `first` on the number of their first entry, from 0; one more than there are columns can
    /// be asked for.
    void ReadColumnStarts(std::int64_t first, std::int64_t count, std::int64_t* starts) const;
    /// Of a sparse matrix: the rows of entries, from 0.
    void ReadRows(std::int64_t first, std::int64_t count, std::int64_t* rows) const;
    /// Of a sparse matrix: the values of entries. @param imaginary  of a complex matrix the imaginary parts, else the real ones
    void ReadValues(std::int64_t first, std::int64_t count, bool imaginary, double* values) const;
    /// Of a dense matrix: elements of a column, from row `first` on.
    void ReadColumn(std::int64_t column, std::int64_t first, std::int64_t count, bool imaginary, double* values) const;

private:
    struct Content;
    std::unique_ptr<Content> m_content;
};
