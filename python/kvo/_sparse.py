"""Sparse matrices between scipy, databases and the library."""

from __future__ import annotations

import html
from typing import Any, Tuple

import numpy as np

from . import _core

# Differences between a matrix and its transpose up to this share of its largest entry are rounding of the program that wrote it.
_SYMMETRY = 1e-12


def csr_of(arrays: Tuple, shape: Tuple[int, int]):
    """The csr_array over row starts, columns and values, without a copy."""
    from scipy.sparse import csr_array

    starts, columns, values, _ = arrays
    return csr_array((values, columns, starts), shape=shape, copy=False)


class HalfStorage:
    """A symmetric matrix as a database stores it: each pair beside the diagonal once.

    Attributes
    ----------
    triangle : scipy.sparse.csr_array
        The entries of one triangle, without the diagonal.
    diagonal : numpy.ndarray
        The diagonal.
    """

    def __init__(self, triangle, diagonal: np.ndarray) -> None:
        self.triangle = triangle
        self.diagonal = diagonal

    @property
    def shape(self) -> Tuple[int, int]:
        return self.triangle.shape

    def __iter__(self):
        return iter((self.triangle, self.diagonal))

    def full(self):
        """The whole matrix as a new csr_array."""
        return csr_of(core_of(self).in_full_storage().rows(), self.shape)

    def __matmul__(self, other: Any) -> Any:
        return SparseMatrix(core_of(self)) @ other

    def __repr__(self) -> str:
        n = self.shape[0]
        return f"<kvo.HalfStorage: {n} x {n}, {self.triangle.nnz} entries in a triangle and the diagonal>"


class SparseMatrix:
    """A sparse matrix of a database, read when it is first used.

    ``k @ x`` multiplies with arrays and with stored matrices; ``tocsr()`` is the csr_array of scipy, for everything else.

    Attributes
    ----------
    shape : tuple of int
        Rows, columns.
    nnz : int
        Stored entries; of half storage a triangle and the diagonal.
    symmetric : bool
        Whether it is in half storage.
    """

    __array_ufunc__ = None
    ndim = 2

    def __init__(self, core: "_core.Sparse | None", load=None, entry: Any = None, name: str = "", path: str = "", transposed: bool = False):
        self._loaded = core
        self._load = load
        self._entry = entry
        self._transposed = transposed
        self.name = name
        self.path = path

    @property
    def _core(self) -> "_core.Sparse":
        if self._loaded is None:
            self._loaded = self._load()
        return self._loaded

    @property
    def shape(self) -> Tuple[int, int]:
        shape = tuple(self._entry.shape) if self._entry is not None else self._core.shape
        return shape[::-1] if self._transposed else shape

    @property
    def dtype(self) -> np.dtype:
        return self._entry.dtype if self._entry is not None else np.dtype(np.float64)

    @property
    def symmetric(self) -> bool:
        return self._entry.kind == 4 if self._entry is not None else self._core.half

    @property
    def nnz(self) -> int:
        if self._entry is not None:
            return self._entry.values + (self.shape[0] if self.symmetric else 0)
        starts, _, _, diagonal = self._core.rows()
        return int(starts[-1]) + (0 if diagonal is None else diagonal.size)

    @property
    def T(self) -> "SparseMatrix":
        """The transpose; nothing is moved."""
        return SparseMatrix(self._loaded, lambda: self._core, self._entry, self.name, self.path, not self._transposed)

    def tocsr(self):
        """The matrix as a new csr_array of scipy, half storage in full."""
        csr = csr_of(self._core.in_full_storage().rows(), self._core.shape)
        return csr.T.tocsr() if self._transposed else csr

    def toarray(self) -> np.ndarray:
        """The matrix as an array, with its zeros."""
        return self.tocsr().toarray()

    def __array__(self, dtype: Any = None) -> np.ndarray:
        return np.asarray(self.toarray(), dtype=dtype)

    def __getitem__(self, key: Any) -> Any:
        return self.tocsr()[key]

    def __matmul__(self, other: Any) -> Any:
        from ._products import matmul

        return matmul(self, other)

    def __rmatmul__(self, other: Any) -> Any:
        from ._products import matmul

        return matmul(other, self)

    def __repr__(self) -> str:
        name = f' "{self.name}"' if self.name else ""
        place = f" of {self.path}" if self.path else ""
        kind = ", symmetric" if self.symmetric else ""
        return f"<kvo.SparseMatrix{name}{place}: {self.shape[0]} x {self.shape[1]} {self.dtype}, {self.nnz} stored values{kind}>"

    def _repr_html_(self) -> str:
        from ._spy import picture_of

        return f"<code>{html.escape(repr(self))}</code>{picture_of(self)}"


def is_sparse(matrix: Any) -> bool:
    """Whether it is a sparse matrix of scipy; does not import it."""
    import sys

    sparse = sys.modules.get("scipy.sparse")
    return sparse is not None and sparse.issparse(matrix)


def core_of(matrix: Any) -> "_core.Sparse":
    """The library's matrix of one of scipy, numpy, a database or half storage. Copies its arrays, once."""
    if isinstance(matrix, SparseMatrix):
        return core_of(matrix.tocsr()) if matrix._transposed and not matrix.symmetric else matrix._core
    if isinstance(matrix, HalfStorage):
        triangle = matrix.triangle.sorted_indices()  # files need not have them in order
        return _core.Sparse.from_rows(*triangle.shape, triangle.indptr, triangle.indices, triangle.data, matrix.diagonal)
    if not is_sparse(matrix):
        from scipy.sparse import csr_array

        dense = np.asarray(matrix)
        if dense.ndim != 2:
            raise ValueError(f"a matrix has two axes, not {dense.ndim}")
        matrix = csr_array(dense)
    if matrix.dtype.kind == "c":
        raise TypeError("complex matrices are not supported")
    rows = matrix.tocsr()
    if max(rows.shape) > 2**31 - 1 or rows.nnz > 2**31 - 1:
        raise ValueError("a matrix has at most 2147483647 rows, columns and entries")
    if not rows.has_canonical_format:
        rows = rows.copy() if rows is matrix or rows.indices.base is not None else rows
        rows.sum_duplicates()
    return _core.Sparse.from_rows(
        *rows.shape,
        rows.indptr.astype(np.int32, copy=False),
        rows.indices[: rows.nnz].astype(np.int32, copy=False),
        rows.data[: rows.nnz].astype(np.float64, copy=False),
        None,
    )


def symmetric_core_of(matrix: Any, what: str) -> "_core.Sparse":
    """The same of a matrix that is symmetric up to rounding: the mean of its triangles.

    Raises
    ------
    ValueError
        Where it is not square or not symmetric.
    """
    core = core_of(matrix)
    if core.shape[0] != core.shape[1]:
        raise ValueError(f"the {what} matrix is not square: {core.shape[0]} x {core.shape[1]}")
    if core.half or core.symmetric():
        return core
    csr = csr_of(core.rows(), core.shape)
    largest = abs(csr).max()
    difference = abs(csr - csr.T).max()
    if not difference <= _SYMMETRY * largest:
        found = f"it differs from its transpose by {difference:.3g}, its largest entry is {largest:.3g}"
        raise ValueError(f"the {what} matrix is not symmetric: {found}")
    return core_of((csr + csr.T) / 2)
