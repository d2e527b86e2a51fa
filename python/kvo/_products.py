"""Products with stored operands, in pieces between which Ctrl-C is taken and within a stated memory."""

from __future__ import annotations

import os
import time
from contextlib import contextmanager
from typing import Any, Callable, Iterator, Tuple

import numpy as np

from . import _core, _transfer
from ._matrix import Matrix, TransposedMatrix, scratch
from ._progress import Progress, told
from ._selection import Axis, everything
from ._sparse import HalfStorage, SparseMatrix, core_of, is_sparse

# A piece should take about so long: Ctrl-C is to be waited for less than two seconds.
_SECONDS = 1.0
_FIRST_FLOPS = 1e9
_MOST_FLOPS = 2e10
# Columns of the left operand that are multiplied at a time, at first and at most: DGEMM gains little from more, and loses where columns lie a
# power of two apart.
_FIRST_INNER = 128
_INNER = 512
# Up to so many vectors the library multiplies stored blocks without copying them.
_FEW = 128
# Columns that a sparse matrix is multiplied with at a time: its entries are read once for them.
_SPARSE_PANEL = 16

_limit: int | None = None  # None: the default


def _default_limit() -> int:
    return os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") // 4


@contextmanager
def memory_limit(nbytes: int) -> Iterator[None]:
    """Limits what products with stored operands take, in all threads, within a ``with`` statement.

    Without it they take a quarter of the machine's memory at most: as much of the right operand as that holds, and of the left one some
    blocks at a time. Results may differ by the rounding of another order of summation.

    Parameters
    ----------
    nbytes : int
        Bytes beside operands and results that are arrays.
    """
    global _limit
    if nbytes <= 0:
        raise ValueError("a limit of memory is positive")
    before, _limit = _limit, int(nbytes)
    try:
        yield
    finally:
        _limit = before


class _Pace:
    """The pieces of rows, each of about the time that one should take and of ``most`` rows at most."""

    def __init__(self, rows: int, unit: int, flops_per_row: float, most: int) -> None:
        self._rows = rows
        self._unit = max(1, min(unit, most))
        self._most = max(1, most // self._unit * self._unit)
        self._next = self._whole(_FIRST_FLOPS / max(flops_per_row, 1.0))
        if rows * flops_per_row <= 4 * _FIRST_FLOPS:
            self._next = max(1, min(rows, self._most))

    def _whole(self, rows: float) -> int:
        return min(max(self._unit, int(min(rows, 2.0**31)) // self._unit * self._unit), self._most)

    def __iter__(self) -> Iterator[slice]:
        first = 0
        while first < self._rows:
            end = min(first + self._next, self._rows)
            begin = time.monotonic()
            yield slice(first, end)
            taken = time.monotonic() - begin
            self._next = self._whole((end - first) * _SECONDS / max(taken, 1e-6))
            first = end


class _Right:
    """The right operand, of which some columns at a time are in memory: an array or a stored matrix, transposed or not."""

    def __init__(self, operand: Any) -> None:
        self._operand = operand
        self.shape: Tuple[int, int] = tuple(operand.shape)  # type: ignore[assignment]

    def __call__(self, rows: slice, columns: slice) -> np.ndarray:
        if isinstance(self._operand, np.ndarray):
            return np.asfortranarray(self._operand[rows, columns], dtype=np.float64)
        axes = [Axis(part.start, 1, part.stop - part.start) for part in (rows, columns)]
        if isinstance(self._operand, TransposedMatrix):
            return np.asfortranarray(_transfer.read(self._operand.T._store, axes[::-1]).T)
        return _transfer.read(self._operand._store, axes)


class _Result:
    """Where the product goes: a new array, or a stored matrix."""

    def __init__(self, rows: int, columns: int, into: Matrix | None) -> None:
        self.stored = into
        self.array = None if into is not None else _core.empty(np.dtype(np.float64), [rows, columns])

    def part(self, rows: slice, columns: slice) -> np.ndarray:
        """Where a piece is formed: in its place, if that is in Fortran order."""
        if self.array is not None and self.array[rows, columns].flags.f_contiguous:
            return self.array[rows, columns]
        return _core.empty(np.dtype(np.float64), [rows.stop - rows.start, columns.stop - columns.start])

    def put(self, rows: slice, columns: slice, values: np.ndarray) -> None:
        if self.array is None:
            axes = [Axis(part.start, 1, part.stop - part.start) for part in (rows, columns)]
            _transfer.write(self.stored._store, axes, values)
        elif not np.may_share_memory(self.array, values):
            self.array[rows, columns] = values


def _panels(count: int, width: int) -> Iterator[slice]:
    return (slice(first, min(first + width, count)) for first in range(0, count, width))


def _multiply(a: Any, right: _Right, result: _Result, limit: int, tell: Callable) -> None:
    """Group by group of the result, which is in memory while slabs of both operands are read and multiplied into it."""
    (m, n), p = a.shape, right.shape[1]
    transposed = isinstance(a, TransposedMatrix)
    left = _Right(a.T if transposed else a)
    width = p if 8 * m * p <= limit // 2 else min(p, max(1, int((limit // 16) ** 0.5)))
    height = int(min(m, max(1, limit // 2 // (8 * width)), max(_INNER, _MOST_FLOPS // (2 * _FIRST_INNER * width))))
    most = min(_INNER, max(1, limit // 2 // (8 * (height + width))))
    for columns in _panels(p, width):
        for rows in _panels(m, height):
            c = result.part(rows, columns)
            for inner in _Pace(n, _FIRST_INNER, 2.0 * c.size, most):
                x = right(inner, columns)
                piece = left(inner, rows) if transposed else left(rows, inner)
                _core.multiply(piece, x, c, transposed, inner.start > 0)
                tell((columns.start * m + (columns.stop - columns.start) * (rows.start + (rows.stop - rows.start) * inner.stop / n)) / (m * p))
            result.put(rows, columns, c)


def _multiply_few(a: Any, right: _Right, result: _Result, limit: int, given: bool, tell: Callable) -> None:
    """With so few vectors that the library multiplies the blocks where they are."""
    columns = slice(0, right.shape[1])
    stored = a.T if isinstance(a, TransposedMatrix) else a
    rows_of_a = stored.shape[0]
    most = max(1, limit // 4 // (8 * columns.stop))
    unit = min(stored.chunks[0] if stored.chunks else 1024, rows_of_a)
    y = result.part(slice(0, a.shape[0]), columns) if stored is not a else None
    for rows in _Pace(rows_of_a, unit, 2.0 * stored.shape[1] * columns.stop, most):
        x = right(rows if stored is not a else slice(0, a.shape[1]), columns)
        part = y if y is not None else result.part(rows, columns)
        ours = max(limit - x.nbytes - part.nbytes, 1) if given else 0
        if y is not None:
            _core.multiply_rows_transposed(stored._store, x, y, rows.start, rows.stop - 1, float(rows.start > 0), ours)
        else:
            _core.multiply_rows(stored._store, x, part, rows.start, rows.stop - 1, ours)
            result.put(rows, columns, part)
        tell(rows.stop / rows_of_a)
    if y is not None:
        result.put(slice(0, a.shape[0]), columns, y)


def _multiply_sparse(a: SparseMatrix, right: _Right, result: _Result, limit: int, tell: Callable) -> None:
    (m, n), p = a.shape, right.shape[1]
    width = max(1, min(p, _SPARSE_PANEL, limit // (8 * max(m + n, 1))))
    for columns in _panels(p, width):
        x = right(slice(0, n), columns)
        y = _core.empty(np.dtype(np.float64), [m, columns.stop - columns.start])
        a._core.multiply(x, y, a._transposed)
        result.put(slice(0, m), columns, y)
        tell(columns.stop / p)


def _multiply_by_sparse(a: Any, b: SparseMatrix, result: _Result, limit: int, tell: Callable) -> None:
    (m, n), p = a.shape, b.shape[1]
    left = _Right(a)
    for rows in _panels(m, max(1, min(m, limit // (24 * max(n + p, 1))))):
        x = np.asfortranarray(left(rows, slice(0, n)).T)
        y = _core.empty(np.dtype(np.float64), [p, rows.stop - rows.start])
        b._core.multiply(x, y, not b._transposed)
        result.put(rows, slice(0, p), y.T)
        tell(rows.stop / m)


def _is_stored(operand: Any) -> bool:
    return isinstance(operand, (Matrix, TransposedMatrix))


def _operand(operand: Any) -> Any:
    """As it is multiplied: stored matrices of float64, sparse ones of the library, arrays."""
    if _is_stored(operand):
        if operand.ndim > 2:
            raise TypeError("products are those of matrices and vectors")
        if operand.ndim == 2 and operand.dtype != np.float64:
            raise TypeError(f"products are those of float64, not of {operand.dtype}; multiply np.asarray(...) of the matrix")
        return operand if operand.ndim == 2 else np.asarray(operand)
    if isinstance(operand, HalfStorage) or is_sparse(operand):
        return SparseMatrix(core_of(operand))
    if isinstance(operand, SparseMatrix):
        return operand
    array = np.asarray(operand)
    if array.dtype.kind not in "biuf":
        raise TypeError(f"products are those of float64, not of {array.dtype}")
    return array.astype(np.float64, copy=False)


def matmul(a: Any, b: Any, out: Matrix | None = None, memory: int | None = None, progress: Progress = None) -> Any:
    """The product of two matrices of which at least one is stored, as ``a @ b``.

    Parameters
    ----------
    a, b : Matrix, SparseMatrix, HalfStorage, array_like or scipy sparse
        The operands. Stored ones are read piece by piece. An array that is not in Fortran order is copied.
    out : Matrix, optional
        A stored matrix of float64 that receives the product, none of the operands.
    memory : int, optional
        Bytes that may be taken beside arrays; see `memory_limit`.
    progress : bool or callable, optional
        True shows how far it is; a callable is called with the share that is done and a text.

    Returns
    -------
    Matrix or numpy.ndarray
        An array where an operand is one; `out`, or a new matrix on a scratch file, where both are stored. Two sparse matrices give what
        scipy gives.
    """
    a, b = _operand(a), _operand(b)
    if isinstance(a, SparseMatrix) and isinstance(b, SparseMatrix):
        return a.tocsr() @ b.tocsr()
    if a.ndim == 0 or b.ndim == 0 or a.ndim > 2 or b.ndim > 2:
        raise ValueError("a product needs matrices or vectors")
    if a.shape[-1] != b.shape[0]:
        raise ValueError(f"the shapes {tuple(a.shape)} and {tuple(b.shape)} do not fit: {a.shape[-1]} columns, {b.shape[0]} rows")
    if isinstance(a, np.ndarray) and isinstance(b, np.ndarray):
        return a @ b
    if a.ndim == 1:  # then b is stored or sparse
        return matmul(b.T, a, None, memory, progress)
    if b.ndim == 1:
        return matmul(a, b.reshape(-1, 1), None, memory, progress)[:, 0]
    if isinstance(a, np.ndarray):
        if out is not None:
            raise TypeError("a product with an array on the left goes into an array")
        return matmul(b.T, a.T, None, memory, progress).T
    (m, n), p = a.shape, b.shape[1]
    into = out
    if out is not None:
        if not isinstance(out, Matrix) or out.shape != (m, p) or out.dtype != np.float64:
            raise ValueError(f"the product needs a matrix of {m} x {p} float64")
        if any(_store_of(operand) is out._store for operand in (a, b)):
            raise ValueError("the result is an operand")
    elif not isinstance(b, np.ndarray) and m > 0 and p > 0:
        into = scratch(m, p)
    limit = memory or _limit or _default_limit()
    result = _Result(m, p, into)
    with told(progress, "multiplying") as tell:
        if n == 0:
            result.put(slice(0, m), slice(0, p), np.zeros((m, p)))
        elif isinstance(b, SparseMatrix):
            _multiply_by_sparse(a, b, result, limit, tell)
        elif isinstance(a, SparseMatrix):
            _multiply_sparse(a, _Right(b), result, limit, tell)
        elif p <= _FEW and 8 * p * max(a.shape) <= limit // 2:
            _multiply_few(a, _Right(b), result, limit, memory is not None or _limit is not None, tell)
        else:
            _multiply(a, _Right(b), result, limit, tell)
    return into if into is not None else result.array


def _store_of(operand: Any) -> Any:
    return getattr(operand.T if isinstance(operand, TransposedMatrix) else operand, "_store", None)
