#pragma once

#include "KVOBasException.h"
#include "KVOExport.h"
#include "atr_String.h"

#include <cstdint>

/// @file
/// The failures of the matrix classes: one class each, with a fixed number and message. A message is translated as a
/// format; its place receives the payload. The numbers 205, 216 and 217 belong to no class.

/// A sparse operation is refused on half storage. Number 201: "KVOSrvSparseMatrix::%s symmetric:True not supported!"
class KVO_EXPORT KVOSrvMtxNoSymmetricTrue : public KVOBasException
{
public:
    /// @param operation  name of the refused operation; copied, null counts as empty
    explicit KVOSrvMtxNoSymmetricTrue(char const* operation);

    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;

private:
    atr_String m_operation;
};

/// A sparse matrix file cannot be opened. Number 202: "KVOSrvSparseImExPorter: Failed to open file %s."
class KVO_EXPORT KVOSrvMtxOpenFileException : public KVOBasException
{
public:
    /// @param path  file name; copied, null counts as empty
    explicit KVOSrvMtxOpenFileException(char const* path);

    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;

private:
    atr_String m_path;
};

/// A range read from a database matrix leaves it. Number 203: "KVOSrvDenseMatrix::GetValues invalid range values."
class KVO_EXPORT KVOSrvMtxInvalidGetRange : public KVOBasException
{
public:
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;
};

/// A range written to a database matrix leaves it. Number 204: "KVOSrvDenseMatrix::SetValues invalid range values."
class KVO_EXPORT KVOSrvMtxInvalidSetRange : public KVOBasException
{
public:
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;
};

/// An argument or shape is wrong. Number 206: "KVOSrvMatrix::%s - Illegal input."
class KVO_EXPORT KVOSrvMtxIllegalInput : public KVOBasException
{
public:
    /// @param operation  name of the operation; copied, null counts as empty
    explicit KVOSrvMtxIllegalInput(char const* operation);

    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;

protected:
    /// Name of the operation.
    atr_String const& Operation() const noexcept { return m_operation; }

private:
    atr_String m_operation;
};

/// An argument or shape is wrong for another class than KVOSrvMatrix. Number 206: "<class>::<operation> - Illegal
/// input: <reason>."
class KVO_EXPORT KVOSrvMtxRefusedInput : public KVOSrvMtxIllegalInput
{
public:
    /// @param className,operation  names of the class and of its operation @param reason  what does not fit, without a
    /// full stop. All are copied, null counts as empty
    KVOSrvMtxRefusedInput(char const* className, char const* operation, char const* reason);

    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;

private:
    atr_String m_className;
    atr_String m_reason;
};

/// A sparse matrix is used between AddData() and EndAssembly(). Number 206: "KVOSrvSparseMatrix::<operation> - Illegal
/// input: the added entries are not assembled, call EndAssembly first."
class KVO_EXPORT KVOSrvMtxNotAssembled : public KVOSrvMtxRefusedInput
{
public:
    /// @param operation  name of the operation; copied, null counts as empty
    explicit KVOSrvMtxNotAssembled(char const* operation);

    [[noreturn]] void Raise() const override;
};

/// A sparse matrix cannot be written in the format asked for. Number 207: "KVOSrvSparseImExPorter: Unsupported export
/// format."
class KVO_EXPORT KVOSrvMtxUnsupportedExpFmt : public KVOBasException
{
public:
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;
};

/// Writing a sparse matrix file failed. Number 208: "Error at writing to file: %s"
class KVO_EXPORT KVOSrvMtxFileWriteFailure : public KVOBasException
{
public:
    /// @param path  file name; copied, null counts as empty
    explicit KVOSrvMtxFileWriteFailure(char const* path);

    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;

private:
    atr_String m_path;
};

/// A sparse operation is refused on half storage. Number 209: "KVOSrvSparseMatrix::%s symmetric:True not supported!"
/// Deliberate: nothing is put into the place; the message keeps its two characters %s.
class KVO_EXPORT KVOSrvMtxNoUnsymmetric : public KVOBasException
{
public:
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;
};

/// A sparse matrix file has an unknown format or, as KVOSrvMtxMalformedFile, malformed content. Number 210:
/// "KVOSrvSparseImExPorter: Unsupported import format."
class KVO_EXPORT KVOSrvMtxUnsupportedImpFmt : public KVOBasException
{
public:
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;
};

/// A sparse matrix file has malformed content, or cannot be read to its end. Number 210, with the message of the base
/// class; the reports say behind it which file, where, and what was expected there.
class KVO_EXPORT KVOSrvMtxMalformedFile : public KVOSrvMtxUnsupportedImpFmt
{
public:
    /// @param path      file name @param line  from 1, 0 where it is not known @param byte  from 0, -1 where it is not
    /// known
    /// @param expected  what was expected and what was found, without a full stop. Texts are copied, null counts as
    /// empty
    KVOSrvMtxMalformedFile(char const* path, std::int64_t line, std::int64_t byte, char const* expected);

    /// "<message> <path>: <place>: <what was expected>."
    atr_String UserReport() const override;
    /// The same behind the message and the place in the source.
    atr_String DeveloperReport() const override;
    [[noreturn]] void Raise() const override;

    /// The file's name; never null, lives as long as this object or a copy of it, as Expected() does.
    char const* Path() const noexcept { return m_path.c_str(); }
    /// The line of a text, from 1; 0 where the byte is known.
    std::int64_t Line() const noexcept { return m_line; }
    /// The byte of a binary file, from 0; -1 where the line is known.
    std::int64_t Byte() const noexcept { return m_byte; }
    /// "line 7" or "byte 24".
    atr_String Place() const;
    /// What was expected there and what was found, as: expected a value, found "x".
    char const* Expected() const noexcept { return m_expected.c_str(); }

private:
    atr_String Detail() const;

    atr_String m_path;
    atr_String m_expected;
    std::int64_t m_line;
    std::int64_t m_byte;
};

/// MultiplyIndexed was asked for the untransposed product. Number 211: "KVOSrvSparseMatrix::MultiplyIndexed
/// transpose:False not supported!"
class KVO_EXPORT KVOSrvMtxNoTranspose : public KVOBasException
{
public:
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;
};

/// A permutation vector names a row that the matrix lacks. Number 212: "KVOSrvMatrix::PermuteRowsInPlace - Illegal perm
/// Vector."
class KVO_EXPORT KVOSrvMtxIllegalPermVect : public KVOBasException
{
public:
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;
};

/// LAPACK refused an argument of the eigensolver. Number 213: "KVOSrvMatrix::SolveEigenproblemSymmetric - Illegal
/// function argument %i."
class KVO_EXPORT KVOSrvMtxSolveIllegalArg : public KVOBasException
{
public:
    /// @param argument  its position, 1-based
    explicit KVOSrvMtxSolveIllegalArg(int argument);

    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;

private:
    int m_argument;
};

/// The tridiagonal eigensolver did not converge. Number 214: "KVOSrvMatrix::SolveEigenproblemSymmetric - Eigensolver
/// did not converge."
class KVO_EXPORT KVOSrvMtxSolveNotConverge : public KVOBasException
{
public:
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;
};

/// The right-hand matrix of an eigenproblem is not positive definite. Number 215:
/// "KVOSrvMatrix::SolveEigenproblemSymmetric - Matrix B is not positive-definite."
class KVO_EXPORT KVOSrvMtxSolveNotPositive : public KVOBasException
{
public:
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;
};

/// A diagonal matrix with a zero entry cannot be factored. Number 218: "KVOSrvMatrix::Factorize - division by 0."
class KVO_EXPORT KVOSrvMtxDivByZero : public KVOBasException
{
public:
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;
};
