"""Natural modes of stiffness and mass pairs."""

from __future__ import annotations

import html
import os
from typing import Any, Dict, Tuple

import numpy as np

from . import _core
from ._matrix import Matrix
from ._progress import Progress, told
from ._sparse import symmetric_core_of


class Modes:
    """The modes that were found, in ascending order.

    Attributes
    ----------
    frequencies : numpy.ndarray
        sqrt(eigenvalue) / (2 pi): hertz where K and M are in consistent units with seconds. 0 for eigenvalues that rounding made negative.
    eigenvalues : numpy.ndarray
        lambda of K x = lambda M x.
    residuals : numpy.ndarray
        Of each mode, as docs/modes.md defines it: what lambda is off by at most, relatively.
    modes : Matrix
        One a column, scaled to x^T M x = 1; on a scratch file that goes with this. ``np.asarray(result.modes)`` is the array.
    account : dict
        What it took: factorizations, steps, memory, seconds.
    """

    def __init__(self, found: Dict[str, Any], order: int) -> None:
        self.eigenvalues: np.ndarray = found["eigenvalues"]
        self.residuals: np.ndarray = found["residuals"]
        self.account: Dict[str, Any] = found["account"]
        self.frequencies: np.ndarray = np.sqrt(np.maximum(self.eigenvalues, 0.0)) / (2.0 * np.pi)
        # An interval without any has no file either.
        self.modes: Matrix | np.ndarray = Matrix(found["modes"], "modes") if found["modes"] is not None else np.empty((order, 0))

    def __len__(self) -> int:
        return len(self.eigenvalues)

    def _rows(self):
        return zip(range(1, len(self) + 1), self.frequencies, self.eigenvalues, self.residuals)

    def __repr__(self) -> str:
        counted = ", none is missing" if self.account["certified"] else ""
        lines = [f"<kvo.Modes: {len(self)} modes of {self.modes.shape[0]} unknowns{counted}>"]
        lines += ["mode      frequency     eigenvalue  residual"]
        lines += [f"{i:4d}  {f:13.6f}  {e:13.6g}  {r:8.1e}" for i, f, e, r in self._rows()]
        return "\n".join(lines)

    def _repr_html_(self) -> str:
        rows = "".join(f"<tr><td>{i}<td>{f:.6f}<td>{e:.6g}<td>{r:.1e}" for i, f, e, r in self._rows())
        title = html.escape(repr(self).splitlines()[0])
        return f"<code>{title}</code><table><tr><th>mode<th>frequency<th>eigenvalue<th>residual{rows}</table>"


def modes(
    k: Any,
    m: Any,
    count: int = 10,
    *,
    interval: Tuple[float, float] | None = None,
    shift: float | None = None,
    tolerance: float = 1e-10,
    certify: bool = True,
    memory: int | None = None,
    folder: str | os.PathLike | None = None,
    keep: str | os.PathLike | None = None,
    resume: bool = False,
    progress: Progress = None,
) -> Modes:
    """The lowest natural modes of a stiffness and a mass matrix, or all of an interval; none is missed.

    Parameters
    ----------
    k, m : scipy sparse, SparseMatrix, HalfStorage or array_like
        Stiffness and mass: symmetric, of one order; the mass is positive semidefinite. Differences of 1e-12 of the largest entry between a
        matrix and its transpose are taken for rounding. They are copied once.
    count : int
        Modes that are wanted, the lowest.
    interval : tuple of float, optional
        Two frequencies: all modes between them instead.
    shift : float, optional
        K + shift M is factored first; chosen where it is not given.
    tolerance : float
        Largest residual.
    certify : bool
        Counts the eigenvalues at the end, which takes a factorization more.
    memory : int, optional
        Bytes that factor and search may take beside the matrices; else the factor goes to the disk.
    folder : path, optional
        For scratch files, in place of `scratch_folder`.
    keep : path, optional
        A new file that the search is kept in, so that it can go on after a kill.
    resume : bool
        Goes on with the search in `keep`.
    progress : bool or callable, optional
        True shows how far it is; a callable is called with the share that is done and a text. Ctrl-C and what it raises end the search at
        the end of its step, or of a factorization.

    Returns
    -------
    Modes
        Frequencies, eigenvalues, residuals, modes and account.

    Raises
    ------
    ModesError
        Where it cannot give what was asked for; the text says why.
    ValueError
        Where the matrices do not fit.
    """
    stiffness, mass = symmetric_core_of(k, "stiffness"), symmetric_core_of(m, "mass")
    if stiffness.shape != mass.shape:
        raise ValueError(f"the stiffness is of order {stiffness.shape[0]} and the mass of order {mass.shape[0]}")
    if interval is None and not 1 <= int(count) <= 2**31 - 1:
        raise ValueError(f"the count of modes is 1 or more, not {count}")
    wanted: Dict[str, Any] = {
        "count": int(count),
        "from": None,
        "to": None,
        "shift": shift,
        "tolerance": float(tolerance),
        "certify": bool(certify),
        "memory": int(memory or 0),
        "resume": bool(resume),
        "folder": "" if folder is None else os.fspath(folder),
        "keep": "" if keep is None else os.fspath(keep),
    }
    if interval is not None:
        low, high = (float(frequency) for frequency in interval)
        if not 0.0 <= low < high < np.inf:
            raise ValueError("an interval is two frequencies, the lower one first")
        wanted["from"], wanted["to"] = ((2.0 * np.pi * frequency) ** 2 for frequency in (low, high))
    with told(progress, "ordering") as tell:

        def report(share: float, doing: str, step: int, found: int, total: int) -> None:
            tell(share, f"{doing}, step {step}, {found} of {total} modes" if step else doing)

        found = _core.find_modes(stiffness, mass, wanted, report if progress else None)
    return Modes(found, stiffness.shape[0])
