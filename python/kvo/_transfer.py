"""Reading and writing of selections of a stored matrix, in pieces between which Ctrl-C is taken."""

from __future__ import annotations

import itertools
from typing import Any, Callable, List, NamedTuple, Sequence

import numpy as np

from . import _core
from ._selection import Axis

# So much goes in one call of the library: at 1 GB/s a tenth of a second.
_PIECE = 1 << 26
# Memory beside the array for selections that are no single range.
_ASIDE = 1 << 25
# To read that many bytes too many costs less than another call.
_GAP = 1 << 14
_GAP_IN_COLUMN = 1 << 12


class _Span(NamedTuple):
    """A range of the matrix along one axis and what of it belongs where in the array."""

    first: int
    count: int
    picked: Any  # of the range: a slice or a list
    place: Any  # in the array: likewise

    @property
    def is_whole(self) -> bool:
        return isinstance(self.picked, slice) and (self.picked.step in (None, 1) or self.count == 1)


def _spans(axis: Axis, gap: int, cap: int) -> List[_Span]:
    if axis.is_run:
        starts = range(0, axis.count, cap)
        counts = [min(cap, axis.count - start) for start in starts]
        return [_Span(axis.first + s, n, slice(None), slice(s, s + n)) for s, n in zip(starts, counts)]
    if axis.positions is None:
        positions, order = axis.first + axis.step * np.arange(axis.count), None
    else:
        order = np.argsort(axis.positions, kind="stable")
        positions = axis.positions[order]
        if np.array_equal(order, np.arange(axis.count)):
            order = None
    spans = []
    ends = np.append(np.flatnonzero(np.diff(positions) > gap + 1) + 1, axis.count)
    begin = 0
    for end in ends.tolist():
        while begin < end:
            stop = min(end, int(np.searchsorted(positions, positions[begin] + cap)))
            first = int(positions[begin])
            picked = positions[begin:stop] - first
            count = int(picked[-1]) + 1
            place = slice(begin, stop) if order is None else order[begin:stop]
            if order is None and axis.positions is None:
                picked = slice(0, count, axis.step)  # at most one axis has a list, or numpy would take pairs
            elif np.all(np.diff(picked) == 1):
                picked = slice(None)
            spans.append(_Span(first, count, picked, place))
            begin = stop
    return spans


def _pieces_of_runs(axes: Sequence[Axis], itemsize: int, chunks: Sequence[int]):
    """Cuts a range along its slowest axis, at chunks where they are not too large. Yields firsts, counts and the part of the array."""
    counts = [axis.count for axis in axes]
    cut = max((k for k, n in enumerate(counts) if n > 1), default=len(counts) - 1)
    across = itemsize
    for k, n in enumerate(counts):
        across *= n if k != cut else 1
    length = max(1, _PIECE // across)
    chunk = chunks[cut] if chunks else 1
    if chunk * across <= 4 * _PIECE:
        length = max(chunk, length // chunk * chunk)
    begin = 0
    while begin < counts[cut]:
        position = axes[cut].first + begin
        count = min(length - position % min(length, chunk), counts[cut] - begin)
        firsts = [axis.first for axis in axes]
        firsts[cut] = position
        part = [slice(None)] * len(axes)
        part[cut] = slice(begin, begin + count)
        yield firsts, counts[:cut] + [count] + counts[cut + 1 :], tuple(part)
        begin += count


def _combinations(axes: Sequence[Axis], itemsize: int):
    lists, inner = [], itemsize
    for k, axis in enumerate(axes):
        gap = _GAP_IN_COLUMN // itemsize if k == 0 else _GAP // inner
        spans = _spans(axis, gap, max(1, _ASIDE // inner))
        lists.append(spans)
        inner *= max(span.count for span in spans)
    return itertools.product(*lists)


def _silent(share: float) -> None:
    del share


def read(store: "_core.Dense", axes: Sequence[Axis], out: np.ndarray | None = None, tell: Callable[[float], None] = _silent) -> np.ndarray:
    """The selection, all axes kept, in Fortran order; ``out`` is such an array of that shape and dtype."""
    shape = [axis.count for axis in axes]
    dtype = store.dtype
    array = _core.empty(dtype, shape) if out is None else out
    if 0 in shape:
        return array
    if all(axis.is_run for axis in axes):
        done = 0
        for firsts, counts, part in _pieces_of_runs(axes, dtype.itemsize, store.chunks):
            values = array[part]
            store.read(firsts, counts, values)
            done += values.size
            tell(done / array.size)
        return array
    for spans in _combinations(axes, dtype.itemsize):
        values = _core.empty(dtype, [span.count for span in spans])
        store.read([span.first for span in spans], [span.count for span in spans], values)
        array[tuple(span.place for span in spans)] = values[tuple(span.picked for span in spans)]
    return array


def write(store: "_core.Dense", axes: Sequence[Axis], values: np.ndarray, tell: Callable[[float], None] = _silent) -> None:
    """Writes ``values``, of the shape of the selection with all axes kept."""
    if 0 in values.shape:
        return
    dtype = store.dtype
    if all(axis.is_run for axis in axes):
        done = 0
        for firsts, counts, part in _pieces_of_runs(axes, dtype.itemsize, store.chunks):
            piece = np.asarray(values[part], dtype=dtype, order="F")
            store.write(firsts, counts, piece)
            done += piece.size
            tell(done / values.size)
        return
    for spans in _combinations(axes, dtype.itemsize):
        firsts, counts = [span.first for span in spans], [span.count for span in spans]
        part = values[tuple(span.place for span in spans)]
        if all(span.is_whole for span in spans):
            store.write(firsts, counts, np.asarray(part, dtype=dtype, order="F"))
            continue
        around = _core.empty(dtype, counts)
        with store:  # nobody else writes between the reading and the writing of what lies between
            store.read(firsts, counts, around)
            around[tuple(span.picked for span in spans)] = part
            store.write(firsts, counts, around)
