"""Database files."""

from __future__ import annotations

import errno
import html
import os
import re
from contextlib import contextmanager
from typing import Any, Dict, Iterator, List, Sequence, Tuple
from weakref import WeakValueDictionary

import numpy as np

from . import _core
from ._errors import DatabaseError, DeniedError, ExistsError, NoSpaceError, NotFoundError
from ._matrix import Matrix, TransposedMatrix, _times
from ._part import Part, remove_leftovers
from ._sparse import HalfStorage, SparseMatrix, core_of, csr_of, is_sparse

# The numbers that kvomtx gives to what it makes. Files that were made before there were titles are known by them.
_TYPES = {1: "matrix", 2: "stiffness", 3: "mass", 4: "modes", 5: "eigenvalues", 6: "product", 7: "participation factors"}
_NUMBERS = {name: number for number, name in _TYPES.items()}
# A dense matrix that is larger is stored in chunks of at most so many rows and columns.
_UNCHUNKED = 1 << 20
_CHUNK = (4096, 256)


_FAILURES = {
    errno.ENOENT: NotFoundError,
    errno.ENOTDIR: NotFoundError,
    errno.EACCES: DeniedError,
    errno.EPERM: DeniedError,
    errno.EROFS: DeniedError,
    errno.ENOSPC: NoSpaceError,
    errno.EDQUOT: NoSpaceError,
}


def open(path: str | os.PathLike, mode: str = "r") -> "Database":  # noqa: A001
    """Opens a database.

    Parameters
    ----------
    path : path
        The file.
    mode : str
        "r" reads. "r+" reads and writes a file that exists. "x" makes a new one and refuses a file that exists. "w" makes a new one that
        takes the place of a file of that name at the first commit, or when it is closed; where an exception leaves the ``with`` statement
        before, the old one stays.

    Returns
    -------
    Database
        To be closed, best by a ``with`` statement.

    Raises
    ------
    DatabaseError
        Where the file cannot be opened: NotFoundError, ExistsError, InUseError, DamagedError, ...
    """
    name = os.fspath(path)
    if mode not in ("r", "r+", "x", "w"):
        raise ValueError(f'the mode is "r", "r+", "x" or "w", not {mode!r}')
    if mode == "x":
        remove_leftovers(os.path.dirname(os.path.realpath(name)))
    if mode != "w":
        return Database(_core.Database(name, mode == "x", mode == "r"), name, mode)
    target = os.path.realpath(name)
    if os.path.isdir(target):
        raise ExistsError(f"Cannot create the database {name}: a folder has that name", 500, "", name)
    try:
        part = Part(target)
    except OSError as error:
        failure = _FAILURES.get(error.errno or 0, DatabaseError)
        raise failure(f"Cannot create the database {name}: {os.strerror(error.errno or 0)}", 500, "", name) from None
    try:
        return Database(_core.Database(part.path, True, False), name, mode, target, part)
    except BaseException:
        part.remove()
        raise


class Database:
    """An open database: a mapping of names to its matrices.

    A name is the title of a matrix, as ``kvomtx db ls`` shows it; of one without a title its number ("3", or "1.3" in a context that is not
    the first). Numbers find every matrix, as ``db[3]`` does.

    It may be used by several threads, which take turns; threads that are to read side by side open the file once each. What is made is kept
    when a transaction commits, or, outside of one, by `commit` and `close`. Values written to matrices that were there before a transaction
    are not taken back.

    Attributes
    ----------
    path : str
        The file, named as when it was opened.
    mode : str
        See `open`.
    closed : bool
        Whether it was closed.
    """

    def __init__(self, core: "_core.Database", path: str, mode: str, target: str | None = None, part: Part | None = None) -> None:
        self._core = core
        self.path = path
        self.mode = mode
        self._target = target  # not None: what the file is called once something is committed,
        self._part = part  # and where it is until then
        self._matrices: "WeakValueDictionary[Tuple[int, int], Matrix]" = WeakValueDictionary()

    # ---- opening and closing

    @property
    def closed(self) -> bool:
        return self._core.closed

    def close(self) -> None:
        """Keeps what was made outside of transactions, and closes. Arrays that were read live on; a second call does nothing."""
        if self.closed:
            return
        target, self._target = self._target, None
        if target is None:
            self._core.close()
        else:
            self._core.roll_back()
            self._core.close_and_move_to(target)
            self._part.remove()

    def _discard(self) -> None:
        self._target = None
        self._core.close()
        self._part.remove()

    def __enter__(self) -> "Database":
        return self

    def __exit__(self, kind: Any, error: Any, trace: Any) -> None:
        if kind is not None and self._target is not None and not self.closed:
            self._discard()
        else:
            self.close()

    def __del__(self) -> None:
        if getattr(self, "_target", None) is not None and not self.closed:
            self._discard()

    def commit(self) -> None:
        """Brings what was made to the disk: it is there after a kill or a power cut."""
        if self._target is None:
            self._core.commit()
        else:
            self._core.commit_and_move_to(self._target)
            self._target = None
            self._part.remove()

    @contextmanager
    def transaction(self) -> Iterator["Database"]:
        """What is made within the ``with`` statement is kept as a whole at its end, or not at all where an exception leaves it."""
        if self._core.in_transaction():
            raise RuntimeError("a transaction of this database is open already")
        self._core.begin()
        try:
            yield self
        except BaseException:
            if not self.closed:
                self._core.roll_back()
            raise
        self.commit()

    # ---- what is there

    def _entries(self) -> Dict[str, Any]:
        entries = [entry for entry in self._core.list() if entry.kind]
        titles = [entry.title for entry in entries]
        called = ["" if entry.title or entry.place.context else _TYPES.get(entry.type, "") for entry in entries]
        names = [
            title or (word if word and called.count(word) == 1 and word not in titles else _number(entry))
            for title, word, entry in zip(titles, called, entries)
        ]
        return dict(zip(names, entries))

    def _find(self, name: Any) -> Tuple[str, Any]:
        text = str(name)
        place = self._core.find(text)
        if place is not None:
            return text, self._core.describe(place)
        entries = self._entries()
        if text in entries:
            return text, entries[text]
        number = re.fullmatch(r"(?:(\d+)\.)?(\d+)|distribution_(\d+)_drawer_0", text)
        if number:
            wanted = (int(number[1] or 0), int(number[2] or number[3]))
            for known, entry in entries.items():
                if (entry.place.context, entry.place.distribution) == wanted:
                    return known, entry
        raise KeyError(f'{self.path} holds no matrix "{text}"; it holds {", ".join(entries) or "none"}')

    def __getitem__(self, name: Any) -> Matrix | SparseMatrix:
        known, entry = self._find(name)
        return self._matrix(known, entry)

    def _matrix(self, name: str, entry: Any) -> Any:
        place = (entry.place.context, entry.place.distribution)
        if entry.kind != 1:
            return SparseMatrix(None, lambda: _core.Sparse.from_database(self._core, entry.place), entry, name, self.path)
        matrix = self._matrices.get(place)
        if matrix is None:  # one for all, so that each knows what another one has extended
            matrix = Matrix(_core.Dense(self._core, entry.place), name, self.path, self)
            self._matrices[place] = matrix
        matrix.name, matrix.unit, matrix.description = name, entry.unit, entry.description
        return matrix

    def __iter__(self) -> Iterator[str]:
        return iter(self._entries())

    def __len__(self) -> int:
        return len(self._entries())

    def __contains__(self, name: Any) -> bool:
        try:
            self._find(name)
        except KeyError:
            return False
        return True

    def keys(self) -> List[str]:
        """The names, in the order in which the matrices were made."""
        return list(self._entries())

    def values(self) -> List[Matrix | SparseMatrix]:
        """The matrices, likewise."""
        return [self._matrix(*item) for item in self._entries().items()]

    def items(self) -> List[Tuple[str, Matrix | SparseMatrix]]:
        """Both."""
        return [(name, self._matrix(name, entry)) for name, entry in self._entries().items()]

    def sparse(self, name: Any, half: bool = False, check: bool = False):
        """A sparse matrix for scipy.

        Parameters
        ----------
        name : str or int
            The matrix.
        half : bool
            Of one in half storage: its triangle and its diagonal as they are stored. Otherwise it is expanded, into one copy.
        check : bool
            Reads the indices and refuses a file in which they are damaged. Without it a mapped matrix is trusted.

        Returns
        -------
        scipy.sparse.csr_array or HalfStorage
            Where the file is open for reading, general storage and `half` are read-only arrays that map the file: nothing is copied, and
            they outlive the database. Elsewhere they are read.
        """
        _, entry = self._find(name)
        if entry.kind == 1:
            raise TypeError(f'"{name}" is dense; db[name] is such a matrix')
        if half and entry.kind != 4:
            raise ValueError(f'"{name}" is not in half storage')
        if entry.kind == 4 and not half:
            if entry.dtype == np.float64:
                return csr_of(_core.Sparse.from_database(self._core, entry.place).in_full_storage().rows(), entry.shape)
            stored = self.sparse(name, True)
            from scipy.sparse import csr_array, diags

            return csr_array(stored.triangle + stored.triangle.T + diags(stored.diagonal))
        arrays = _core.stored_rows(self._core, entry.place, not check)
        return HalfStorage(csr_of(arrays, entry.shape), arrays[3]) if half else csr_of(arrays, entry.shape)

    # ---- making

    def create(
        self,
        title: str | None = None,
        shape: Sequence[int] | None = None,
        dtype: Any = None,
        data: Any = None,
        chunks: Sequence[int] | bool | None = None,
        half: bool | None = None,
        checksums: bool = False,
        unit: str | None = None,
        description: str | None = None,
    ) -> Matrix | SparseMatrix:
        """Makes a matrix.

        Parameters
        ----------
        title : str, optional
            What it is, as "stiffness": its name here, in h5py and for `kvomtx`. Without '/' and not beginning with "context_"; one that
            another matrix has gets " (2)". Without one its number names it.
        shape : tuple of int, optional
            Of a dense matrix of zeros.
        dtype : dtype, optional
            float64, float32, int32, uint32, int8 or uint8; that of `data`, or float64.
        data : array_like, Matrix or sparse, optional
            Its values. Sparse ones are stored in half storage where they are symmetric.
        chunks : tuple of int or bool, optional
            Rows and columns of the pieces of a dense matrix; False: stored in one piece. Large ones are cut as suits most uses otherwise.
        half : bool, optional
            Of sparse `data`: True refuses what is not symmetric, False stores all of it.
        checksums : bool
            Keeps checksums of the values.
        unit, description : str, optional
            What people are told of it.

        Returns
        -------
        Matrix or SparseMatrix
            The new matrix.
        """
        about = _about(title, unit, description)
        if isinstance(data, (SparseMatrix, HalfStorage)) or is_sparse(data):
            return self._create_sparse(data, about, half, checksums)
        values = data if isinstance(data, (Matrix, TransposedMatrix)) or data is None else np.asarray(data)
        if values is None and shape is None:
            raise ValueError("a matrix needs a shape or data")
        extents = tuple(int(n) for n in (values.shape if shape is None else np.atleast_1d(shape)))
        kind = np.dtype(np.float64 if values is None else values.dtype) if dtype is None else np.dtype(dtype)
        if dtype is None and kind.kind in "biuf" and kind.itemsize > 4:
            kind = np.dtype(np.float64)  # there are no larger integers
        if not 1 <= len(extents) <= 32 or min(extents) < 0 or max(extents) > 2**31 - 1:
            raise ValueError(f"a matrix has 1 to 32 axes of 0 to 2147483647, not {extents}")
        cut = _chunks(extents, kind.itemsize, chunks, checksums)
        place = self._core.create_dense(list(extents), kind, cut, about, checksums)
        matrix = self[f"{place.context}.{place.distribution}"]
        if values is not None:
            matrix[...] = values  # type: ignore[index]
        return matrix

    def _create_sparse(self, data: Any, about: "_core.About", half: bool | None, checksums: bool) -> Any:
        core = core_of(data)
        if half is False and core.half:
            core = core.in_full_storage()
        elif half is not False and not core.half and (half or core.symmetric()):
            core = core.in_half_storage()
        place = core.store(self._core, about, checksums)
        return self[f"{place.context}.{place.distribution}"]

    def __setitem__(self, title: str, data: Any) -> None:
        if title in self:
            raise ValueError(f'there is a matrix "{title}"; db["{title}"][...] = values changes it')
        self.create(title, data=data)

    def set_title(self, name: Any, title: str, unit: str | None = None, description: str | None = None) -> None:
        """Gives a matrix a title, a unit and a description, in place of those that it has.

        Parameters
        ----------
        name : str or int
            The matrix.
        title, unit, description : str
            As in `create`.
        """
        self._core.tell(self._find(name)[1].place, _about(title, unit, description))

    def check(self) -> List[str]:
        """The damage that is found in the file, which is open for reading; empty: it is sound."""
        return self._core.check().splitlines()

    # ---- what it is like

    def _table(self) -> List[Tuple[str, str, str, str]]:
        kinds = {1: "dense", 3: "sparse", 4: "sparse, symmetric"}
        return [
            (name, _times(entry.shape), f"{kinds[entry.kind]}, {entry.dtype}", _times(entry.chunks))
            for name, entry in self._entries().items()
        ]

    def __repr__(self) -> str:
        if self.closed:
            return f"<kvo.Database {self.path}: closed>"
        rows = "".join(f"\n  {name:<14} {size:<18} {kind:<26} {cut}".rstrip() for name, size, kind, cut in self._table())
        return f'<kvo.Database {self.path} ("{self.mode}")>{rows}'

    def _repr_html_(self) -> str:
        if self.closed:
            return f"<code>{html.escape(repr(self))}</code>"
        rows = "".join("<tr>" + "".join(f"<td>{html.escape(cell)}" for cell in row) for row in self._table())
        return f"<code>{html.escape(self.path)}</code><table><tr><th>name<th>shape<th>storage<th>chunks{rows}</table>"


def _about(title: str | None, unit: str | None, description: str | None) -> "_core.About":
    return _core.About(_NUMBERS.get(title or "", -1), title or "", unit or "", description or "")


def _number(entry: Any) -> str:
    place = entry.place
    return f"{place.context}.{place.distribution}" if place.context else str(place.distribution)


def _chunks(shape: Sequence[int], itemsize: int, chunks: Any, checksums: bool) -> List[int] | None:
    if isinstance(chunks, (bool, np.bool_)) and not chunks:
        return None
    if chunks is None or isinstance(chunks, (bool, np.bool_)):
        nbytes = int(np.prod(shape, dtype=np.float64)) * itemsize
        if len(shape) > 2 or not (chunks or checksums or nbytes > _UNCHUNKED):
            return None
        largest = _CHUNK if len(shape) == 2 else (_CHUNK[0] * _CHUNK[1],)
        return [max(1, min(n, most)) for n, most in zip(shape, largest)]
    sizes = [int(n) for n in np.atleast_1d(chunks)]
    if len(sizes) != len(shape) or min(sizes) < 1:
        raise ValueError(f"chunks are {len(shape)} numbers of 1 and more")
    return sizes
