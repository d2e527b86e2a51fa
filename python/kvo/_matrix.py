"""Dense matrices that stay where they are stored until they are indexed."""

from __future__ import annotations

import html
from typing import Any, Iterator, Sequence, Tuple

import numpy as np

from . import _core, _transfer
from ._progress import Progress, told
from ._selection import everything, select, shape_of


class _Lazy:
    """What a stored matrix and its transpose have in common."""

    __array_ufunc__ = None  # numpy leaves operators to this class
    shape: Tuple[int, ...]
    dtype: np.dtype

    @property
    def ndim(self) -> int:
        """Number of axes."""
        return len(self.shape)

    @property
    def size(self) -> int:
        """Number of values."""
        return int(np.prod(self.shape, dtype=np.int64))

    @property
    def nbytes(self) -> int:
        """Bytes of all values."""
        return self.size * self.dtype.itemsize

    def __len__(self) -> int:
        return self.shape[0]

    def __iter__(self) -> Iterator[np.ndarray]:
        return (self[row] for row in range(len(self)))  # type: ignore[index]

    def __array__(self, dtype: Any = None) -> np.ndarray:
        values = self[...]  # type: ignore[index]
        return values if dtype is None else values.astype(dtype, copy=False)

    def __matmul__(self, other: Any) -> Any:
        from ._products import matmul

        return matmul(self, other)

    def __rmatmul__(self, other: Any) -> Any:
        from ._products import matmul

        return matmul(other, self)

    def _repr_html_(self) -> str:
        return f"<code>{html.escape(repr(self))}</code>"


class Matrix(_Lazy):
    """A dense matrix in a database, or on a scratch file, read and written slice by slice.

    It is indexed as a dataset of h5py: integers, slices with positive steps, an ellipsis, and for one axis a list of integers (in any
    order) or of truth values. What is read is an array in Fortran order that owns its memory; the library writes a range straight into it.
    Values that are written may have any shape that broadcasts; those in Fortran order and of this dtype are not copied.

    A one-dimensional distribution is a vector; one of three and more dimensions has them from the last to the first.

    Attributes
    ----------
    shape : tuple of int
        Rows, columns.
    dtype : numpy.dtype
        Type of the values.
    chunks : tuple of int or None
        Rows and columns of the pieces in which it is stored.
    name : str
        What ``db[name]`` finds it by; empty for scratch matrices.
    unit, description : str
        What its maker tells of it.
    """

    def __init__(self, store: "_core.Dense", name: str = "", path: str = "", database: Any = None) -> None:
        self._store = store
        self._database = database  # stays open while a matrix of it is in use
        self.name = name
        self.path = path
        self.unit = ""
        self.description = ""

    @property
    def shape(self) -> Tuple[int, ...]:  # type: ignore[override]
        return self._store.shape

    @property
    def dtype(self) -> np.dtype:  # type: ignore[override]
        return self._store.dtype

    @property
    def chunks(self) -> Tuple[int, ...] | None:
        return self._store.chunks or None

    @property
    def T(self) -> "TransposedMatrix":
        """The transpose, as lazy as this."""
        return TransposedMatrix(self)

    def __getitem__(self, key: Any) -> Any:
        values = self._store.get(key)
        if values is not None:
            return values
        axes = select(key, self.shape)
        values = _transfer.read(self._store, axes)
        return self._without_dropped(values, axes)

    @staticmethod
    def _without_dropped(values: np.ndarray, axes: Sequence) -> Any:
        if any(axis.dropped for axis in axes):
            values = values[tuple(0 if axis.dropped else slice(None) for axis in axes)]
        return values

    def __setitem__(self, key: Any, values: Any) -> None:
        if not self._store.put(key, values):
            self._write(select(key, self.shape), values)

    def _write(self, axes: Sequence, values: Any, tell=_transfer._silent) -> None:
        given = np.asarray(values)
        if given.dtype.kind == "c":
            raise TypeError("complex values have no place in a database")
        shape = shape_of(axes)
        if given.ndim > len(shape) and given.shape[: given.ndim - len(shape)] == (1,) * (given.ndim - len(shape)):
            given = given.reshape(given.shape[given.ndim - len(shape) :])
        whole = np.broadcast_to(given, shape)
        whole = whole[tuple(None if axis.dropped else slice(None) for axis in axes)]
        _transfer.write(self._store, axes, whole, tell)

    def read(self, key: Any = Ellipsis, out: np.ndarray | None = None, progress: Progress = None) -> np.ndarray:
        """Reads a selection, into an array that is there if one is given.

        Parameters
        ----------
        key : index
            As between brackets.
        out : numpy.ndarray, optional
            Receives the values. In Fortran order and of this dtype it takes no other memory.
        progress : bool or callable, optional
            True shows how far it is; a callable is called with the share that is done and a text.

        Returns
        -------
        numpy.ndarray
            The values; `out` where that was given.
        """
        if out is not None and not progress and self._store.fill(key, out):
            return out
        axes = select(key, self.shape)
        shape = [axis.count for axis in axes]
        with told(progress, f"reading {self.name}") as tell:
            if out is None:
                return self._without_dropped(_transfer.read(self._store, axes, None, tell), axes)
            if out.shape != shape_of(axes):
                raise ValueError(f"the values have the shape {shape_of(axes)}, the array {out.shape}")
            if out.dtype == self.dtype and out.flags.f_contiguous and out.flags.writeable:
                _transfer.read(self._store, axes, out.reshape(shape, order="F"), tell)
            else:
                out[...] = self._without_dropped(_transfer.read(self._store, axes, None, tell), axes)
            return out

    def write(self, values: Any, key: Any = Ellipsis, progress: Progress = None) -> None:
        """Writes a selection, as ``x[key] = values``.

        Parameters
        ----------
        values : array_like
            What is written; it broadcasts.
        key : index
            As between brackets.
        progress : bool or callable, optional
            As in `read`.
        """
        with told(progress, f"writing {self.name}") as tell:
            self._write(select(key, self.shape), values, tell)

    def resize(self, size: int, axis: int = 0) -> None:
        """Lets the matrix grow along an axis; what is new is 0. Chunked matrices are not copied for it.

        Parameters
        ----------
        size : int
            Rows or columns that it is to have, as many as it has or more.
        axis : int
            0 rows, 1 columns.
        """
        shape = self.shape
        if self.ndim > 2 or self.dtype != np.float64:
            raise TypeError("only matrices and vectors of float64 can grow")
        if not 0 <= axis < self.ndim:
            raise ValueError(f"there is no axis {axis}")
        if size < shape[axis]:
            raise ValueError(f"a matrix only grows, and has {shape[axis]} already")
        if size > shape[axis] and self._store.extend(axis, list(range(shape[axis], size))) != 0:
            raise ValueError("the members are numbered otherwise than from 0 on; the library's own ExtendDim() serves such a matrix")

    def __repr__(self) -> str:
        name = f' "{self.name}"' if self.name else ""
        place = f" of {self.path}" if self.path else " on a scratch file"
        cut = f", chunks {_times(self.chunks)}" if self.chunks else ""
        return f"<kvo.Matrix{name}{place}: {_times(self.shape)} {self.dtype}{cut}>"


class TransposedMatrix(_Lazy):
    """The transpose of a stored matrix: nothing is moved until it is indexed. Arrays that are read are in C order."""

    def __init__(self, matrix: Matrix) -> None:
        self.T = matrix

    @property
    def shape(self) -> Tuple[int, ...]:  # type: ignore[override]
        return self.T.shape[::-1]

    @property
    def dtype(self) -> np.dtype:  # type: ignore[override]
        return self.T.dtype

    def __getitem__(self, key: Any) -> Any:
        axes = select(key, self.shape)
        values = _transfer.read(self.T._store, axes[::-1]).T
        return Matrix._without_dropped(values, axes)

    def __setitem__(self, key: Any, values: Any) -> None:
        axes = select(key, self.shape)
        whole = np.broadcast_to(np.asarray(values), shape_of(axes))
        whole = whole[tuple(None if axis.dropped else slice(None) for axis in axes)]
        _transfer.write(self.T._store, axes[::-1], whole.T)

    def __repr__(self) -> str:
        return f"<kvo.Matrix, transposed: {_times(self.shape)} of {self.T!r}>"


def scratch(rows: int, columns: int, row_chunk: int = 4096, column_chunk: int = 256) -> Matrix:
    """A matrix of zeros on a scratch file that goes with it."""
    return Matrix(_core.Dense.scratch(rows, columns, min(rows, row_chunk), min(columns, column_chunk)))


def whole(matrix: Matrix, tell) -> np.ndarray:
    return _transfer.read(matrix._store, everything(matrix.shape), None, tell)


def _times(sizes: Sequence[int]) -> str:
    return " x ".join(map(str, sizes))
