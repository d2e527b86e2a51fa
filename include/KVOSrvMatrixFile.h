#pragma once

#include "KVOExport.h"

#include <memory>

class KVOSrvSparseMatrix;

/// How a file holds a matrix. Those from 0 to 7 have the numbers that KVOSrvSparseMatrix::Import() and Export() take.
enum class KVOSrvMatrixFormat : int {
    kUnknown = -1,        ///< none of these
    kRecords = 0,         ///< record file of Fortran, symmetric; read only
    kChunksAsStored = 1,  ///< chunked file, its header tells half from full storage; read only
    kTriplets2 = 2,       ///< text triplets; read only
    kTriplets = 3,        ///< text triplets
    kNodes = 4,           ///< lines with node and degree of freedom; written only
    kLines = 5,           ///< comma-separated lines; written only
    kChunks = 6,          ///< chunked file, symmetric
    kDense = 7,           ///< dense file
    kMatrixMarket = 100,  ///< Matrix Market
    kDatabase = 101,      ///< simulation database, read through its own classes
    kHarwellBoeing = 102, ///< Harwell-Boeing or Rutherford-Boeing; read only
    kScipy = 103,         ///< sparse matrix of scipy, .npz; read only
    kNumpy = 104,         ///< array of NumPy, .npy; read only
    kMatlab = 105         ///< variable of a .mat file of level 7.3; read only
};

/// What is read of a complex matrix. A real one is read whole, whatever is asked for.
enum class KVOSrvMatrixPart : int {
    kWhole,    ///< all of it, so that a complex one is refused
    kReal,     ///< the real parts of its entries
    kImaginary ///< the imaginary parts
};

/// Matrix files of every format, told apart by what they hold. docs/sparse-files.md describes the formats.
class KVO_EXPORT KVOSrvMatrixFile
{
public:
    /// The format of a word or a number, as "mtx", "dense" or "7"; kUnknown for others.
    static KVOSrvMatrixFormat FormatOfWord(char const* word);
    /// The format that a file's ending stands for, in capitals too; kUnknown where it stands for none.
    static KVOSrvMatrixFormat FormatOfName(char const* path);
    /// The format that a file begins like; kUnknown where it is like none, and for a file that cannot be read.
    /// Marks that no other format has come first: of Matrix Market, HDF5, .npz, .npy, .mat, and the head of a
    /// Harwell-Boeing file. Then sizes that fit together: of record, chunked and dense files; then a first record of
    /// text triplets.
    /// @param marksOnly  leave out what has no mark
    static KVOSrvMatrixFormat FormatOfContent(char const* path, bool marksOnly = false);
    /// The format to read a file as: by its mark, else by its ending, in front of ".gz" or ".zst" where it has that,
    /// else by the rest of its content. A chunked file is kChunksAsStored.
    static KVOSrvMatrixFormat FormatToRead(char const* path);
    /// As "format 7 (dense file)" or "Matrix Market".
    static char const* Describe(KVOSrvMatrixFormat format);

    /// The matrix in a file. Text formats are also read compressed by gzip or zstd, which the file's first bytes tell.
    ///
    /// @param format    kUnknown: what FormatToRead() says
    /// @param variable  of a .mat file, its name; null or empty: the only one
    /// @param part      of a complex matrix. Both parts have entries at the same places
    /// @throws KVOSrvMtxMalformedFile with the place, also for a complex matrix that is to be read whole, where there
    /// is no such variable or several and none is named, and where the file is like none of the formats
    /// @throws KVOSrvMtxUnsupportedImpFmt for a format that is written only, and for a database
    /// @throws KVOSrvMtxOpenFileException with the path, KVOSimException where HDF5 cannot read a .mat file
    /// @throws KVOSrvMtxIllegalInput "EndAssembly" when more than INT_MAX entries would be stored, mem_OutOfMemory
    /// Under a KVOSrvProductMemory matrices are assembled within it, as AddData() and EndAssembly() are, with their
    /// errors; but formats 0, 1 and 6 hold the arrays of the result.
    static std::unique_ptr<KVOSrvSparseMatrix> Read(char const* path,
                                                    KVOSrvMatrixFormat format = KVOSrvMatrixFormat::kUnknown,
                                                    char const* variable = nullptr,
                                                    KVOSrvMatrixPart part = KVOSrvMatrixPart::kWhole);
};
