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

KVOSrvMtxNoSymmetricTrue::KVOSrvMtxNoSymmetricTrue(char const* operation) : m_operation(Message("%s", operation)) {}
KVOSrvMtxNoSymmetricTrue::~KVOSrvMtxNoSymmetricTrue() = default;
atr_String KVOSrvMtxNoSymmetricTrue::AsString() const
{
    return Message("KVOSrvSparseMatrix::%s symmetric:True not supported!", m_operation);
}
void KVOSrvMtxNoSymmetricTrue::Raise() const
{
    throw KVOSrvMtxNoSymmetricTrue(*this);
}
int KVOSrvMtxNoSymmetricTrue::ErrorNumber() const
{
    return 201;
}

KVOSrvMtxOpenFileException::KVOSrvMtxOpenFileException(char const* path) : m_path(Message("%s", path)) {}
KVOSrvMtxOpenFileException::~KVOSrvMtxOpenFileException() = default;
atr_String KVOSrvMtxOpenFileException::AsString() const
{
    return Message("KVOSrvSparseImExPorter: Failed to open file %s.", m_path);
}
void KVOSrvMtxOpenFileException::Raise() const
{
    throw KVOSrvMtxOpenFileException(*this);
}
int KVOSrvMtxOpenFileException::ErrorNumber() const
{
    return 202;
}

KVOSrvMtxInvalidGetRange::~KVOSrvMtxInvalidGetRange() = default;
atr_String KVOSrvMtxInvalidGetRange::AsString() const
{
    return Message("KVOSrvDenseMatrix::GetValues invalid range values.");
}
void KVOSrvMtxInvalidGetRange::Raise() const
{
    throw KVOSrvMtxInvalidGetRange(*this);
}
int KVOSrvMtxInvalidGetRange::ErrorNumber() const
{
    return 203;
}

KVOSrvMtxInvalidSetRange::~KVOSrvMtxInvalidSetRange() = default;
atr_String KVOSrvMtxInvalidSetRange::AsString() const
{
    return Message("KVOSrvDenseMatrix::SetValues invalid range values.");
}
void KVOSrvMtxInvalidSetRange::Raise() const
{
    throw KVOSrvMtxInvalidSetRange(*this);
}
int KVOSrvMtxInvalidSetRange::ErrorNumber() const
{
    return 204;
}

KVOSrvMtxIllegalInput::KVOSrvMtxIllegalInput(char const* operation) : m_operation(Message("%s", operation)) {}
KVOSrvMtxIllegalInput::~KVOSrvMtxIllegalInput() = default;
atr_String KVOSrvMtxIllegalInput::AsString() const
{
    return Message("KVOSrvMatrix::%s - Illegal input.", m_operation);
}
void KVOSrvMtxIllegalInput::Raise() const
{
    throw KVOSrvMtxIllegalInput(*this);
}
int KVOSrvMtxIllegalInput::ErrorNumber() const
{
    return 206;
}

KVOSrvMtxRefusedInput::KVOSrvMtxRefusedInput(char const* className, char const* operation, char const* reason)
    : KVOSrvMtxIllegalInput(operation), m_className(Message("%s", className)), m_reason(Message("%s", reason))
{
}
KVOSrvMtxRefusedInput::~KVOSrvMtxRefusedInput() = default;
atr_String KVOSrvMtxRefusedInput::AsString() const
{
    return Message("%s::%s - Illegal input: %s.", m_className, Operation(), m_reason);
}
void KVOSrvMtxRefusedInput::Raise() const
{
    throw KVOSrvMtxRefusedInput(*this);
}

KVOSrvMtxNotAssembled::KVOSrvMtxNotAssembled(char const* operation)
    : KVOSrvMtxRefusedInput("KVOSrvSparseMatrix", operation, "the added entries are not assembled, call EndAssembly first")
{
}
KVOSrvMtxNotAssembled::~KVOSrvMtxNotAssembled() = default;
void KVOSrvMtxNotAssembled::Raise() const
{
    throw KVOSrvMtxNotAssembled(*this);
}

KVOSrvMtxUnsupportedExpFmt::~KVOSrvMtxUnsupportedExpFmt() = default;
atr_String KVOSrvMtxUnsupportedExpFmt::AsString() const
{
    return Message("KVOSrvSparseImExPorter: Unsupported export format.");
}
void KVOSrvMtxUnsupportedExpFmt::Raise() const
{
    throw KVOSrvMtxUnsupportedExpFmt(*this);
}
int KVOSrvMtxUnsupportedExpFmt::ErrorNumber() const
{
    return 207;
}

KVOSrvMtxFileWriteFailure::KVOSrvMtxFileWriteFailure(char const* path) : m_path(Message("%s", path)) {}
KVOSrvMtxFileWriteFailure::~KVOSrvMtxFileWriteFailure() = default;
atr_String KVOSrvMtxFileWriteFailure::AsString() const
{
    return Message("Error at writing to file: %s", m_path);
}
void KVOSrvMtxFileWriteFailure::Raise() const
{
    throw KVOSrvMtxFileWriteFailure(*this);
}
int KVOSrvMtxFileWriteFailure::ErrorNumber() const
{
    return 208;
}

KVOSrvMtxNoUnsymmetric::~KVOSrvMtxNoUnsymmetric() = default;
atr_String KVOSrvMtxNoUnsymmetric::AsString() const
{
    return Message("KVOSrvSparseMatrix::%s symmetric:True not supported!");
}
void KVOSrvMtxNoUnsymmetric::Raise() const
{
    throw KVOSrvMtxNoUnsymmetric(*this);
}
int KVOSrvMtxNoUnsymmetric::ErrorNumber() const
{
    return 209;
}

KVOSrvMtxUnsupportedImpFmt::~KVOSrvMtxUnsupportedImpFmt() = default;
atr_String KVOSrvMtxUnsupportedImpFmt::AsString() const
{
    return Message("KVOSrvSparseImExPorter: Unsupported import format.");
}
void KVOSrvMtxUnsupportedImpFmt::Raise() const
{
    throw KVOSrvMtxUnsupportedImpFmt(*this);
}
int KVOSrvMtxUnsupportedImpFmt::ErrorNumber() const
{
    return 210;
}

KVOSrvMtxMalformedFile::KVOSrvMtxMalformedFile(char const* path, std::int64_t line, std::int64_t byte, char const* expected)
    : m_path(Message("%s", path)), m_expected(Message("%s", expected)), m_line(line), m_byte(byte)
{
}
KVOSrvMtxMalformedFile::~KVOSrvMtxMalformedFile() = default;
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
void KVOSrvMtxMalformedFile::Raise() const
{
    throw KVOSrvMtxMalformedFile(*this);
}

KVOSrvMtxNoTranspose::~KVOSrvMtxNoTranspose() = default;
atr_String KVOSrvMtxNoTranspose::AsString() const
{
    return Message("KVOSrvSparseMatrix::MultiplyIndexed transpose:False not supported!");
}
void KVOSrvMtxNoTranspose::Raise() const
{
    throw KVOSrvMtxNoTranspose(*this);
}
int KVOSrvMtxNoTranspose::ErrorNumber() const
{
    return 211;
}

KVOSrvMtxIllegalPermVect::~KVOSrvMtxIllegalPermVect() = default;
atr_String KVOSrvMtxIllegalPermVect::AsString() const
{
    return Message("KVOSrvMatrix::PermuteRowsInPlace - Illegal perm Vector.");
}
void KVOSrvMtxIllegalPermVect::Raise() const
{
    throw KVOSrvMtxIllegalPermVect(*this);
}
int KVOSrvMtxIllegalPermVect::ErrorNumber() const
{
    return 212;
}

KVOSrvMtxSolveIllegalArg::KVOSrvMtxSolveIllegalArg(int argument) : m_argument(argument) {}
KVOSrvMtxSolveIllegalArg::~KVOSrvMtxSolveIllegalArg() = default;
atr_String KVOSrvMtxSolveIllegalArg::AsString() const
{
    return Message("KVOSrvMatrix::SolveEigenproblemSymmetric - Illegal function argument %i.", m_argument);
}
void KVOSrvMtxSolveIllegalArg::Raise() const
{
    throw KVOSrvMtxSolveIllegalArg(*this);
}
int KVOSrvMtxSolveIllegalArg::ErrorNumber() const
{
    return 213;
}

KVOSrvMtxSolveNotConverge::~KVOSrvMtxSolveNotConverge() = default;
atr_String KVOSrvMtxSolveNotConverge::AsString() const
{
    return Message("KVOSrvMatrix::SolveEigenproblemSymmetric - Eigensolver did not converge.");
}
void KVOSrvMtxSolveNotConverge::Raise() const
{
    throw KVOSrvMtxSolveNotConverge(*this);
}
int KVOSrvMtxSolveNotConverge::ErrorNumber() const
{
    return 214;
}

KVOSrvMtxSolveNotPositive::~KVOSrvMtxSolveNotPositive() = default;
atr_String KVOSrvMtxSolveNotPositive::AsString() const
{
    return Message("KVOSrvMatrix::SolveEigenproblemSymmetric - Matrix B is not positive-definite.");
}
void KVOSrvMtxSolveNotPositive::Raise() const
{
    throw KVOSrvMtxSolveNotPositive(*this);
}
int KVOSrvMtxSolveNotPositive::ErrorNumber() const
{
    return 215;
}

KVOSrvMtxDivByZero::~KVOSrvMtxDivByZero() = default;
atr_String KVOSrvMtxDivByZero::AsString() const
{
    return Message("KVOSrvMatrix::Factorize - division by 0.");
}
void KVOSrvMtxDivByZero::Raise() const
{
    throw KVOSrvMtxDivByZero(*this);
}
int KVOSrvMtxDivByZero::ErrorNumber() const
{
    return 218;
}
