"""Pictures of where the entries of a sparse matrix are."""

from __future__ import annotations

import base64
import io
from typing import Any

import numpy as np

from ._sparse import HalfStorage, SparseMatrix, is_sparse

_CELLS = 256


def _counts(matrix: Any, cells: int) -> np.ndarray:
    if isinstance(matrix, SparseMatrix):
        matrix = matrix.tocsr()
    elif isinstance(matrix, HalfStorage):
        matrix = matrix.full()
    elif not is_sparse(matrix):
        from scipy.sparse import csr_array

        matrix = csr_array(np.asarray(matrix))
    entries = matrix.tocoo()
    rows, columns = max(matrix.shape[0], 1), max(matrix.shape[1], 1)
    longest = max(rows, columns)
    size = [max(1, min(n, round(cells * n / longest))) for n in (rows, columns)]
    where = [np.asarray(index, dtype=np.int64) * cut // n for index, cut, n in zip((entries.row, entries.col), size, (rows, columns))]
    return np.bincount(where[0] * size[1] + where[1], minlength=size[0] * size[1]).reshape(size)


def spy(matrix: Any, ax: Any = None, cells: int = _CELLS):
    """Draws the pattern of a sparse matrix through matplotlib: the darker, the more entries.

    Parameters
    ----------
    matrix : scipy sparse, SparseMatrix, HalfStorage or array_like
        The matrix.
    ax : matplotlib.axes.Axes, optional
        Where to draw; a new figure otherwise.
    cells : int
        Cells along the longer side.

    Returns
    -------
    matplotlib.axes.Axes
        Where it was drawn.
    """
    import matplotlib.pyplot as plt

    ax = ax if ax is not None else plt.subplots()[1]
    rows, columns = matrix.shape
    counts = _counts(matrix, cells)
    ax.imshow(np.log1p(counts), cmap="Greys", interpolation="nearest", extent=(-0.5, columns - 0.5, rows - 0.5, -0.5))
    ax.set_title(f"{rows} x {columns}, {int(counts.sum())} entries")
    return ax


def picture_of(matrix: Any) -> str:
    """The pattern as an element of HTML; empty without matplotlib and for large matrices, which a notebook should not read unasked."""
    if matrix.nnz > 20_000_000:
        return ""
    try:
        from matplotlib.image import imsave
    except ImportError:
        return ""
    picture = io.BytesIO()
    imsave(picture, np.log1p(_counts(matrix, _CELLS)), cmap="Greys", format="png")
    data = base64.b64encode(picture.getvalue()).decode()
    return f'<br><img src="data:image/png;base64,{data}" style="border:1px solid; image-rendering:pixelated" width="256">'
