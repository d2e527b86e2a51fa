"""Matrix files of every format that the library reads and writes."""

from __future__ import annotations

import os
import stat
from contextlib import contextmanager
from typing import Any, Iterator, Union

import numpy as np

from . import _core
from ._matrix import Matrix, TransposedMatrix, scratch
from ._part import Part
from ._sparse import HalfStorage, SparseMatrix, core_of, csr_of, is_sparse

# The numbers of the library's formats that are spoken of here.
_TRIPLETS, _NODES, _CHUNKS, _DENSE, _MATRIX_MARKET, _DATABASE, _MATLAB = 3, 4, 6, 7, 100, 101, 105
_WRITTEN = (_TRIPLETS, _NODES, 5, _CHUNKS, _DENSE, _MATRIX_MARKET, _DATABASE)
Format = Union[str, int, None]


def _format_of(path: str, format: Format, of_file) -> int:
    """Its number, of the word or number that the caller gave, else what ``of_file`` says."""
    if format is None:
        number = of_file(path)
        if number < 0:
            raise ValueError(f"{path}: nothing tells the format; name it, one of mtx, sim, hb, npz, npy, mat and 0 to 7")
        return number
    number = _core.format_of_word(str(format).lower())
    if number < 0:
        raise ValueError(f'"{format}" is no format; formats are mtx, sim, hb, npz, npy, mat and the numbers 0 to 7')
    return number


def read(path: str | os.PathLike, format: Format = None):
    """Reads a sparse matrix from a file.

    Parameters
    ----------
    path : path
        A file of any format of docs/sparse-files.md, texts also compressed by gzip or zstd; ``FILE.sim`` or ``FILE.sim:NAME`` for the only,
        or the named, matrix of a database; ``FILE.mat`` or ``FILE.mat:NAME`` for a variable of MATLAB's level 7.3.
    format : str or int, optional
        "mtx", "sim", "hb", "npz", "npy", "mat" or a number, where neither the content nor the ending tells it.

    Returns
    -------
    scipy.sparse.csr_array
        The matrix in full, over the memory that the library has read it into. A dense matrix of a database is an array.

    Raises
    ------
    OpenFileError, MalformedFileError
        Where the file cannot be opened or is not as it should be; the report says in what line.
    """
    text = os.fspath(path)
    file, sign, name = text.rpartition(":")
    if sign and not os.path.exists(text) and (format is not None or os.path.exists(file) or file.lower().endswith((".sim", ".mat"))):
        text = file
    else:
        name = ""
    number = _format_of(text, format, _core.format_to_read if os.path.exists(text) else lambda _: _TRIPLETS)
    if number == _DATABASE or (format is None and text.lower().endswith(".sim")):
        return _read_stored(text, name)
    core = _core.Sparse.read(text, number, name)
    return csr_of((core.in_full_storage() if core.half else core).rows(), core.shape)


def _read_stored(path: str, name: str):
    from ._database import open

    with open(path) as database:
        if not name:
            sparse = [key for key in database if isinstance(database[key], SparseMatrix)]
            if len(sparse) != 1:
                raise KeyError(f"{path} holds {len(sparse)} sparse matrices; name one, as {path}:NAME of {list(database)}")
            name = sparse[0]
        matrix = database[name]
        return matrix[...] if isinstance(matrix, Matrix) else database.sparse(name)


@contextmanager
def _replaced(path: str) -> Iterator[str]:
    """The name of a file that takes the place of ``path`` in one step at the end."""
    target = os.path.realpath(path)
    try:
        mode = stat.S_IMODE(os.stat(target).st_mode)
    except FileNotFoundError:
        mask = os.umask(0)
        os.umask(mask)
        mode = 0o666 & ~mask
    part = Part(target)
    try:
        yield part.path
        os.chmod(part.path, mode)
        os.replace(part.path, target)
    finally:
        part.remove()


def write(path: str | os.PathLike, matrix: Any, format: Format = None, nodes: Any = None) -> None:
    """Writes a matrix to a file, which is replaced in one step.

    Parameters
    ----------
    path : path
        Its ending tells the format: .mtx, .sim, .triplets or .txt (3), .nodes (4), .csv (5), .chunks (6), .dense (7).
    matrix : scipy sparse, SparseMatrix, HalfStorage, Matrix or array_like
        Dense ones go to .mtx, .dense and .sim as they are; elsewhere, their entries that are not 0.
    format : str or int, optional
        "mtx", "sim" or a number, where the ending does not tell it.
    nodes : array_like, optional
        For format 4: a row for each row of the matrix, its node and its degree of freedom.

    Raises
    ------
    ValueError
        Where the format is read only, or has no place for the matrix.
    FileWriteError, OpenFileError
        Where the file cannot be written.
    """
    text = os.fspath(path)
    number = _format_of(text, format, _core.format_of_name)
    if number not in _WRITTEN:
        raise ValueError(f"{text}: this format can be read only; write mtx, sim, 3, 4, 5, 6 or 7")
    if number == _DATABASE:
        from ._database import open

        with open(text, "w") as database:
            database.create(data=matrix)
        return
    numbering = None
    if nodes is not None:
        numbering = np.ascontiguousarray(nodes, dtype=np.int32)
        if numbering.ndim != 2 or numbering.shape[1] != 2:
            raise ValueError("nodes has a row of node and degree of freedom for each row of the matrix")
    elif number == _NODES:
        raise ValueError(f"{text}: format 4 needs the node and the degree of freedom of each row")
    dense = _dense(matrix) if number in (_MATRIX_MARKET, _DENSE) else None
    with _replaced(text) as name:
        if dense is not None:
            dense._store.export(name, number == _MATRIX_MARKET)
        else:
            _core_for(number, matrix).write(name, number, numbering)


def _dense(matrix: Any) -> Matrix | None:
    """As a stored matrix, which the library writes; None for sparse ones."""
    if isinstance(matrix, Matrix) and matrix.dtype == np.float64:
        return matrix
    if isinstance(matrix, (SparseMatrix, HalfStorage)) or is_sparse(matrix):
        return None
    values = np.asarray(matrix, dtype=np.float64)
    values = values.reshape(-1, 1) if values.ndim == 1 else values
    if values.ndim != 2 or 0 in values.shape:
        return None
    stored = scratch(*values.shape)
    stored[...] = values
    return stored


def _core_for(number: int, matrix: Any) -> "_core.Sparse":
    core = core_of(np.asarray(matrix) if isinstance(matrix, (Matrix, TransposedMatrix)) else matrix)
    if number == _CHUNKS:
        return core if core.half else core.in_half_storage()
    if number == _MATRIX_MARKET:
        return core
    core = core.in_full_storage() if core.half else core
    rows, columns = core.shape
    if number == _TRIPLETS:
        if (rows == 0) != (columns == 0):
            raise ValueError(f"text triplets cannot hold a matrix of {rows} x {columns}; write it as .mtx")
        core = _with_corner(core)
    return core


def _with_corner(core: "_core.Sparse") -> "_core.Sparse":
    """Triplets have no other size than that of their largest indices: a 0 at the last place keeps it."""
    starts, indices, values, _ = core.rows()
    rows, columns = core.shape
    if rows == 0 or (starts[rows] > starts[rows - 1] and indices.max() == columns - 1):
        return core
    starts = starts.copy()
    starts[rows] += 1
    return _core.Sparse.from_rows(
        rows, columns, starts, np.append(indices, np.int32(columns - 1)).astype(np.int32), np.append(values, 0.0), None
    )
