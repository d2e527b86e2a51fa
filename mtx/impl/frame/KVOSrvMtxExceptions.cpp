#include "KVOSrvMtxExceptions.h"

#include "atr_Translate.h"

#include <string>

namespace
{

template<class... Payload>
atr_String Message(char const* format, Payload... payload)
{
    atr_translate message(format);
    int place = 0;
    (atr_SubstituteFormat(message, ++place, payload), ...);
    return message.Result();
}

template<class... More>
atr_String Message(char const* format, atr_String const& first, More const&... more)
{
    return Message(format, first.c_str(), more.c_str()...);
}

} // namespace

// What every class says in the same words: its number, its text and the payload of its places, and that it is thrown as itself. A macro and
// no class between, since each derives directly from KVOBasException.
#define KVO_MTX_EXCEPTION(Class, number, ...)                                                                                              \
    atr_String Class::AsString() const                                                                                                     \
    {                                                                                                                                      \
        return Message(__VA_ARGS__);                                                                                                       \
    }                                                                                                                                      \
    int Class::ErrorNumber() const                                                                                                         \
    {                                                                                                                                      \
        return number;                                                                                                                     \
    }                                                                                                                                      \
    KVO_MTX_RAISES(Class)
#define KVO_MTX_RAISES(Class)                                                                                                              \
    void Class::Raise() const                                                                                                              \
    {                                                                                                                                      \
        throw Class(*this);                                                                                                                \
    }

KVOSrvMtxNoSymmetricTrue::KVOSrvMtxNoSymmetricTrue(char const* operation) : m_operation(Message("%s", operation)) {}
KVO_MTX_EXCEPTION(KVOSrvMtxNoSymmetricTrue, 201, "KVOSrvSparseMatrix::%s symmetric:True not supported!", m_operation)

KVOSrvMtxOpenFileException::KVOSrvMtxOpenFileException(char const* path) : m_path(Message("%s", path)) {}
KVO_MTX_EXCEPTION(KVOSrvMtxOpenFileException, 202, "KVOSrvSparseImExPorter: Failed to open file %s.", m_path)
KVO_MTX_EXCEPTION(KVOSrvMtxInvalidGetRange, 203, "KVOSrvDenseMatrix::GetValues invalid range values.")
KVO_MTX_EXCEPTION(KVOSrvMtxInvalidSetRange, 204, "KVOSrvDenseMatrix::SetValues invalid range values.")

KVOSrvMtxIllegalInput::KVOSrvMtxIllegalInput(char const* operation) : m_operation(Message("%s", operation)) {}
KVO_MTX_EXCEPTION(KVOSrvMtxIllegalInput, 206, "KVOSrvMatrix::%s - Illegal input.", m_operation)

KVOSrvMtxRefusedInput::KVOSrvMtxRefusedInput(char const* className, char const* operation, char const* reason)
    : KVOSrvMtxIllegalInput(operation), m_className(Message("%s", className)), m_reason(Message("%s", reason))
{
}
atr_String KVOSrvMtxRefusedInput::AsString() const
{
    return Message("%s::%s - Illegal input: %s.", m_className, Operation(), m_reason);
}
KVO_MTX_RAISES(KVOSrvMtxRefusedInput)

KVOSrvMtxNotAssembled::KVOSrvMtxNotAssembled(char const* operation)
    : KVOSrvMtxRefusedInput("KVOSrvSparseMatrix", operation, "the added entries are not assembled, call EndAssembly first")
{
}
KVO_MTX_RAISES(KVOSrvMtxNotAssembled)

KVO_MTX_EXCEPTION(KVOSrvMtxUnsupportedExpFmt, 207, "KVOSrvSparseImExPorter: Unsupported export format.")

KVOSrvMtxFileWriteFailure::KVOSrvMtxFileWriteFailure(char const* path) : m_path(Message("%s", path)) {}
KVO_MTX_EXCEPTION(KVOSrvMtxFileWriteFailure, 208, "Error at writing to file: %s", m_path)
KVO_MTX_EXCEPTION(KVOSrvMtxNoUnsymmetric, 209, "KVOSrvSparseMatrix::%s symmetric:True not supported!")
KVO_MTX_EXCEPTION(KVOSrvMtxUnsupportedImpFmt, 210, "KVOSrvSparseImExPorter: Unsupported import format.")

KVOSrvMtxMalformedFile::KVOSrvMtxMalformedFile(char const* path, std::int64_t line, std::int64_t byte, char const* expected)
    : m_path(Message("%s", path)), m_expected(Message("%s", expected)), m_line(line), m_byte(byte)
{
}
atr_String KVOSrvMtxMalformedFile::Place() const
{
    std::string const number = std::to_string(m_line > 0 ? m_line : m_byte);
    return Message(m_line > 0 ? "line %s" : "byte %s", number.c_str());
}
atr_String KVOSrvMtxMalformedFile::Detail() const
{
    return Message("%s: %s: %s.", m_path, Place(), m_expected);
}
atr_String KVOSrvMtxMalformedFile::UserReport() const
{
    return Message("%s %s", AsString(), Detail());
}
atr_String KVOSrvMtxMalformedFile::DeveloperReport() const
{
    return Message("%s\n%s", KVOSrvMtxUnsupportedImpFmt::DeveloperReport(), Detail());
}
KVO_MTX_RAISES(KVOSrvMtxMalformedFile)

KVO_MTX_EXCEPTION(KVOSrvMtxNoTranspose, 211, "KVOSrvSparseMatrix::MultiplyIndexed transpose:False not supported!")
KVO_MTX_EXCEPTION(KVOSrvMtxIllegalPermVect, 212, "KVOSrvMatrix::PermuteRowsInPlace - Illegal perm Vector.")

KVOSrvMtxSolveIllegalArg::KVOSrvMtxSolveIllegalArg(int argument) : m_argument(argument) {}
KVO_MTX_EXCEPTION(KVOSrvMtxSolveIllegalArg, 213, "KVOSrvMatrix::SolveEigenproblemSymmetric - Illegal function argument %i.", m_argument)
KVO_MTX_EXCEPTION(KVOSrvMtxSolveNotConverge, 214, "KVOSrvMatrix::SolveEigenproblemSymmetric - Eigensolver did not converge.")
KVO_MTX_EXCEPTION(KVOSrvMtxSolveNotPositive, 215, "KVOSrvMatrix::SolveEigenproblemSymmetric - Matrix B is not positive-definite.")
KVO_MTX_EXCEPTION(KVOSrvMtxDivByZero, 218, "KVOSrvMatrix::Factorize - division by 0.")
