"""The failures of the library as classes of Python; docs/errors.md says what each number means and what to do."""

from __future__ import annotations


class Error(Exception):
    """A failure of the library.

    Attributes
    ----------
    number : int
        The number of the failure, the same in all languages.
    text : str
        What happened.
    report : str
        The same with the place in the library's source, for its makers.
    """

    def __init__(self, text: str = "", number: int = 0, report: str = "") -> None:
        super().__init__(text)
        self.text = text
        self.number = number
        self.report = report

    def __reduce__(self):  # to other processes and back
        return _rebuilt, (type(self), dict(self.__dict__))

    def __str__(self) -> str:
        return self.text


def _rebuilt(cls, facts):
    error = cls.__new__(cls)
    Exception.__init__(error, facts["text"])
    error.__dict__.update(facts)
    return error


class DatabaseError(Error):
    """A database failed. Number 500.

    Attributes
    ----------
    path : str
        The file that failed; empty where none is concerned.
    """

    def __init__(self, text: str = "", number: int = 500, report: str = "", path: str = "") -> None:
        super().__init__(text, number, report)
        self.path = path


class ClosedError(DatabaseError):
    """A database was closed, or what was asked for belongs to one that was."""


class MisuseError(DatabaseError):
    """What was asked for cannot be: a write to a database that is open for reading, sizes that do not fit."""


class NotFoundError(DatabaseError, FileNotFoundError):
    """The file or its folder does not exist."""


class ExistsError(DatabaseError, FileExistsError):
    """A file of that name exists."""


class DeniedError(DatabaseError, PermissionError):
    """The permissions of the file or of its folder forbid it."""


class InUseError(DatabaseError):
    """The file is open elsewhere, for writing, or for reading where this is to write."""


class ForeignError(DatabaseError):
    """The file is no database of this library's format."""


class DamagedError(DatabaseError):
    """The file was cut short or contradicts itself."""


class NoSpaceError(DatabaseError):
    """The disk is full, or a quota is reached."""


class PlatformError(Error):
    """A helper of the platform, or the system, refused. Number 400."""


class ModesError(Error):
    """A factorization or a search for modes cannot give what was asked for. Number 600.

    Attributes
    ----------
    kind : str
        "memory", "disk", "pair", "shift", "missed", "kept" or "internal".
    """

    def __init__(self, text: str = "", number: int = 600, report: str = "", kind: str = "internal") -> None:
        super().__init__(text, number, report)
        self.kind = kind


class NoSymmetricError(Error):
    """The operation does not work on half storage. Number 201."""


class OpenFileError(Error, OSError):
    """A matrix file cannot be opened. Number 202."""


class InvalidGetRangeError(Error, IndexError):
    """A range that is read leaves the matrix. Number 203."""


class InvalidSetRangeError(Error, IndexError):
    """A range that is written leaves the matrix. Number 204."""


class IllegalInputError(Error, ValueError):
    """An argument or a shape does not fit. Number 206."""


class RefusedInputError(IllegalInputError):
    """The same, with the reason. Number 206."""


class NotAssembledError(RefusedInputError):
    """A sparse matrix is used while it is assembled. Number 206."""


class UnsupportedExportFormatError(Error, ValueError):
    """Matrices cannot be written in this format. Number 207."""


class FileWriteError(Error, OSError):
    """Writing a matrix file failed. Number 208."""


class NoUnsymmetricError(Error, ValueError):
    """The format holds symmetric matrices only. Number 209."""


class UnsupportedImportFormatError(Error, ValueError):
    """The format of a matrix file is unknown. Number 210."""


class MalformedFileError(UnsupportedImportFormatError):
    """A matrix file is malformed. Number 210.

    Attributes
    ----------
    path, place, expected : str
        The file, the line or byte in it, and what was expected there.
    """

    def __init__(
        self, text: str = "", number: int = 210, report: str = "", path: str = "", place: str = "", expected: str = ""
    ) -> None:
        super().__init__(text, number, report)
        self.path = path
        self.place = place
        self.expected = expected


class NoTransposeError(Error):
    """Only the transposed product is supported. Number 211."""


class IllegalPermutationError(Error, ValueError):
    """A permutation names a row that the matrix lacks. Number 212."""


class SolveIllegalArgumentError(Error):
    """LAPACK refused an argument of the eigensolver. Number 213."""


class SolveNotConvergedError(Error):
    """The eigensolver did not converge. Number 214."""


class SolveNotPositiveError(Error):
    """The right-hand matrix of an eigenproblem is not positive definite. Number 215."""


class DivisionByZeroError(Error, ZeroDivisionError):
    """A diagonal matrix with a zero entry cannot be factored. Number 218."""


__all__ = [name for name, value in list(globals().items()) if isinstance(value, type) and issubclass(value, Error)]
