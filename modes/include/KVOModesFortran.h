#pragma once

#include "KVOExport.h"

#include <stdint.h>

/// @file
/// The Fortran-callable entry points of the modes library, as C prototypes; the Fortran module kvo_mtx_modes declares
/// the same for Fortran.
///
/// Conventions are those of KVOFortran.h: every argument but a handle is passed by reference, integers are 32-bit but
/// for handles and bytes, reals 64-bit, matrices are stored by columns. Nothing is thrown: what can fail answers a
/// status, 0; an error number of docs/errors.md; -1 when memory is exhausted; -2 when there is no such matrix; -3 when
/// there are more modes than there is room for. KVOSRVMODESERROR tells why.

#ifdef __cplusplus
extern "C" {
#endif

/// @name Matrices
///
/// A handle is the address of a KVOSrvSparseMatrix: C++ may hand over one of its own, symmetric and assembled, which
/// stays its own.
/// @{

/// Makes a symmetric matrix of compressed rows; the arrays are copied. They are 0-based also for Fortran, as those of
/// BLAC_SPARSE_UMV: row i = 0 ... order - 1 has the entries values[k], in column columns[k], for k from rowStart[i] to
/// rowStart[i + 1] - 1, in any order; entries of one place are summed.
/// @param order        1 or more
/// @param values       all entries, or those of one triangle and the diagonal
/// @param[out] handle  of the matrix, which KVOSRVMODESRELEASE ends; 0 unless the status is 0
/// @return 206 when the arrays are no such rows, a value is not finite or both triangles are there and differ by more
/// than 1e-12 of the largest entry; between those that differ by less the lower one counts
KVO_EXPORT int KVOSRVMODESMATRIX(int const* order, int const* rowStart, int const* columns, double const* values,
                                 int64_t* handle);

/// Reads a stored symmetric matrix.
/// @param path         name of a Matrix Market file or of a simulation database, `length` characters; blanks at the end
/// do not count
/// @param number       that of the matrix in the database, as `kvomtx db ls` shows it; below 0 the file is a Matrix
/// Market file
/// @param[out] handle  as in KVOSRVMODESMATRIX
KVO_EXPORT int KVOSRVMODESREAD(char const* path, int const* length, int const* number, int64_t* handle);

/// Rows and columns of a matrix; 0 for the handle 0.
KVO_EXPORT int KVOSRVMODESORDER(int64_t handle);

/// Ends what KVOSRVMODESMATRIX or KVOSRVMODESREAD made; the handle 0 does nothing.
KVO_EXPORT void KVOSRVMODESRELEASE(int64_t handle);

/// @}
/// @name Modes
///
/// KVOSrvModes, which see, into arrays of the caller; they are not touched unless the status is 0. The eigenvalues are
/// counted: with status 0 none is missing. Number 600 is a KVOSrvModesFailure. Scratch files lie in the working
/// directory, unless C++ has said otherwise (KVOSrvUtilities::SetTempDirectory()).
/// @{

/// The lowest modes of K x = lambda M x.
/// @param stiffness,mass    handles of K and M, of one order
/// @param count             how many
/// @param tolerance         largest residual; 0 or less: 1e-10
/// @param memory            bytes that factor and search may take; 0: no limit
/// @param[out] eigenvalues  `count`, ascending
/// @param[out] residuals    `count`
/// @param[out] modes        order x `count`, a mode a column, scaled to x^T M x = 1
KVO_EXPORT int KVOSRVMODESLOWEST(int64_t stiffness, int64_t mass, int const* count, double const* tolerance,
                                 int64_t const* memory, double* eigenvalues, double* residuals, double* modes);

/// All modes with an eigenvalue from `from` to `to`; the other arguments as in KVOSRVMODESLOWEST.
/// @param room        how many the arrays hold
/// @param[out] found  how many there are; more than `room` with status -3. Set with these two only
KVO_EXPORT int KVOSRVMODESRANGE(int64_t stiffness, int64_t mass, double const* from, double const* to, int const* room,
                                double const* tolerance, int64_t const* memory, int* found, double* eigenvalues,
                                double* residuals, double* modes);

/// The message of the last status other than 0 that one of these entry points gave in this thread; empty before the
/// first.
/// @param[out] text  `length` characters, cut or padded with blanks
/// @return the characters of the whole message, 1023 at most
KVO_EXPORT int KVOSRVMODESERROR(char* text, int const* length);

/// @}

#ifdef __cplusplus
} // extern "C"
#endif
