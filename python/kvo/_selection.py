"""What stands between the brackets of ``x[...]``, as positions along every axis."""

from __future__ import annotations

import operator
from typing import Any, List, Sequence, Tuple

import numpy as np


class Axis:
    """Positions along one axis: ``count`` of them from ``first`` on in steps of ``step``, or a list."""

    def __init__(self, first: int, step: int, count: int, positions: np.ndarray | None = None, dropped: bool = False) -> None:
        self.first = first
        self.step = step
        self.count = count
        self.positions = positions
        self.dropped = dropped  # an integer: the axis is none of the result

    @property
    def is_run(self) -> bool:
        """Whether the positions follow each other."""
        return self.positions is None and (self.step == 1 or self.count <= 1)


def _expanded(key: Any, rank: int) -> list:
    keys = list(key) if isinstance(key, tuple) else [key]
    gaps = [place for place, one in enumerate(keys) if one is Ellipsis]
    if len(gaps) > 1:
        raise IndexError("only one ellipsis may be used")
    missing = rank - (len(keys) - len(gaps))
    if missing < 0:
        raise IndexError(f"{len(keys) - len(gaps)} indices were given for {rank} axes")
    place = gaps[0] if gaps else len(keys)
    keys[place : place + len(gaps)] = [slice(None)] * missing
    return keys


def _of_slice(key: slice, extent: int) -> Axis:
    if key.step is not None and operator.index(key.step) < 1:
        raise ValueError(f"the step must be 1 or more, it is {key.step}")
    first, end, step = key.indices(extent)
    return Axis(first, step, max(0, -((first - end) // step)))


def _of_list(key: Any, extent: int) -> Axis:
    values = np.asarray(key)
    if values.ndim != 1:
        raise TypeError("an axis takes a list of one dimension")
    if values.dtype == bool:
        if values.size != extent:
            raise IndexError(f"a list of {values.size} truth values does not fit an axis of {extent}")
        values = np.flatnonzero(values)
    elif values.size == 0:
        values = values.astype(np.int64)
    elif values.dtype.kind not in "iu":
        raise TypeError(f"an axis takes integers, slices and lists of integers or truth values, not {values.dtype}")
    positions = values.astype(np.int64)
    if positions.size and (positions.min() < -extent or positions.max() >= extent):
        raise IndexError(f"an index lies outside of an axis of {extent}")
    return Axis(0, 1, positions.size, np.where(positions < 0, positions + extent, positions))


def _of_key(key: Any, extent: int) -> Axis:
    if isinstance(key, slice):
        return _of_slice(key, extent)
    if isinstance(key, (bool, np.bool_)):
        raise TypeError("a truth value is no index")
    if isinstance(key, (list, np.ndarray)) and np.ndim(key) > 0:
        return _of_list(key, extent)
    try:
        position = operator.index(key)
    except TypeError:
        if np.ndim(key) == 0:
            raise TypeError(f"an axis takes integers, slices and lists, not {type(key).__name__}") from None
        return _of_list(key, extent)
    if not -extent <= position < extent:
        raise IndexError(f"index {position} lies outside of an axis of {extent}")
    return Axis(position % extent, 1, 1, dropped=True)


def select(key: Any, shape: Sequence[int]) -> List[Axis]:
    """The axes that ``key`` selects of a matrix of that shape, as h5py reads it: one list at most."""
    rank = len(shape)
    if isinstance(key, np.ndarray) and key.dtype == bool and key.ndim == rank and rank > 1:
        raise TypeError("a mask of the whole matrix is not supported; use a list of rows or of columns")
    axes = [_of_key(one, extent) for one, extent in zip(_expanded(key, rank), shape)]
    if sum(axis.positions is not None for axis in axes) > 1:
        raise TypeError("only one axis may be indexed by a list")
    return axes


def everything(shape: Sequence[int]) -> List[Axis]:
    return [Axis(0, 1, extent) for extent in shape]


def shape_of(axes: Sequence[Axis]) -> Tuple[int, ...]:
    """The shape of the selection without the axes that an integer dropped."""
    return tuple(axis.count for axis in axes if not axis.dropped)
