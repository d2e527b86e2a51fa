// Exceptions of the library as classes of Python.

#include "Errors.h"

#include "Home.h"

#include "KVOBasPlatformException.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvMtxExceptions.h"

namespace py = pybind11;

namespace
{

template<class Exception>
bool Is(KVOBasException const& exception)
{
    return dynamic_cast<Exception const*>(&exception) != nullptr;
}

struct Known {
    bool (*is)(KVOBasException const&);
    char const* name;
};

// Derived classes stand before their base.
constexpr Known kKnown[] = {
    {Is<KVOSrvMtxNoSymmetricTrue>, "NoSymmetricError"},
    {Is<KVOSrvMtxOpenFileException>, "OpenFileError"},
    {Is<KVOSrvMtxInvalidGetRange>, "InvalidGetRangeError"},
    {Is<KVOSrvMtxInvalidSetRange>, "InvalidSetRangeError"},
    {Is<KVOSrvMtxNotAssembled>, "NotAssembledError"},
    {Is<KVOSrvMtxRefusedInput>, "RefusedInputError"},
    {Is<KVOSrvMtxIllegalInput>, "IllegalInputError"},
    {Is<KVOSrvMtxUnsupportedExpFmt>, "UnsupportedExportFormatError"},
    {Is<KVOSrvMtxFileWriteFailure>, "FileWriteError"},
    {Is<KVOSrvMtxNoUnsymmetric>, "NoUnsymmetricError"},
    {Is<KVOSrvMtxMalformedFile>, "MalformedFileError"},
    {Is<KVOSrvMtxUnsupportedImpFmt>, "UnsupportedImportFormatError"},
    {Is<KVOSrvMtxNoTranspose>, "NoTransposeError"},
    {Is<KVOSrvMtxIllegalPermVect>, "IllegalPermutationError"},
    {Is<KVOSrvMtxSolveIllegalArg>, "SolveIllegalArgumentError"},
    {Is<KVOSrvMtxSolveNotConverge>, "SolveNotConvergedError"},
    {Is<KVOSrvMtxSolveNotPositive>, "SolveNotPositiveError"},
    {Is<KVOSrvMtxDivByZero>, "DivisionByZeroError"},
    {Is<KVOBasPlatformException>, "PlatformError"},
    {Is<KVOSrvModesFailure>, "ModesError"},
};

char const* NameOf(KVOSimException::Kind kind)
{
    switch (kind) {
    case KVOSimException::Kind::Misuse:
        return "MisuseError";
    case KVOSimException::Kind::NotFound:
        return "NotFoundError";
    case KVOSimException::Kind::Exists:
        return "ExistsError";
    case KVOSimException::Kind::Denied:
        return "DeniedError";
    case KVOSimException::Kind::InUse:
        return "InUseError";
    case KVOSimException::Kind::Foreign:
        return "ForeignError";
    case KVOSimException::Kind::Damaged:
        return "DamagedError";
    case KVOSimException::Kind::NoSpace:
        return "NoSpaceError";
    default:
        return "DatabaseError";
    }
}

char const* NameOf(KVOBasException const& exception)
{
    for (Known const& known : kKnown)
        if (known.is(exception))
            return known.name;
    return "Error";
}

// Texts hold paths, which need not be UTF-8.
py::str Text(char const* text)
{
    PyObject* const decoded = PyUnicode_DecodeFSDefault(text);
    if (decoded == nullptr)
        throw py::error_already_set();
    return py::reinterpret_steal<py::str>(decoded);
}

void Set(char const* name, KVOBasException const& exception, py::dict const& facts = py::dict())
{
    py::object const type = py::module_::import("kvo._errors").attr(name);
    py::object const error =
        type(Text(exception.UserReport().c_str()), exception.ErrorNumber(), Text(exception.DeveloperReport().c_str()), **facts);
    PyErr_SetObject(type.ptr(), error.ptr());
}

void SetDatabaseError(char const* name, KVOSimException const& exception)
{
    if (exception.FailureKind() == KVOSimException::Kind::NoMemory)
        return PyErr_SetObject(PyExc_MemoryError, Text(exception.UserReport().c_str()).ptr());
    Set(name, exception, py::dict(py::arg("path") = Text(exception.Path())));
}

char const* NameOf(KVOSrvModesFailure::Kind kind)
{
    constexpr char const* kNames[] = {"memory", "disk", "pair", "shift", "missed", "kept", "internal"};
    return kNames[kind];
}

} // namespace

void RegisterErrors()
{
    py::register_exception_translator([](std::exception_ptr pointer) {
        try {
            if (pointer)
                std::rethrow_exception(pointer);
        } catch (ClosedDatabase const& closed) {
            SetDatabaseError("ClosedError", closed.failure);
        } catch (KVOSimException const& exception) {
            SetDatabaseError(NameOf(exception.FailureKind()), exception);
        } catch (KVOSrvModesFailure const& exception) {
            Set("ModesError", exception, py::dict(py::arg("kind") = NameOf(exception.WhatFailed())));
        } catch (KVOSrvMtxMalformedFile const& exception) {
            Set("MalformedFileError", exception,
                py::dict(py::arg("path") = Text(exception.Path()), py::arg("place") = Text(exception.Place().c_str()),
                         py::arg("expected") = Text(exception.Expected())));
        } catch (KVOBasException const& exception) {
            Set(NameOf(exception), exception);
        }
    });
}
