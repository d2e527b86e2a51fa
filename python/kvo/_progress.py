"""Where a long call stands, for people and for callbacks."""

from __future__ import annotations

import sys
from contextlib import contextmanager
from typing import Callable, Iterator, Union

Progress = Union[bool, None, Callable[[float, str], object]]


class _Line:
    """Where tqdm is not installed: a line on the error stream of a terminal."""

    def __init__(self) -> None:
        self._shown = ""

    def __call__(self, share: float, doing: str) -> None:
        text = f"{doing}: {100 * share:3.0f} %"
        if text != self._shown and sys.stderr.isatty():
            sys.stderr.write("\r" + text.ljust(len(self._shown)))
            sys.stderr.flush()
            self._shown = text

    def close(self) -> None:
        if self._shown:
            sys.stderr.write("\n")


class _Bar:
    def __init__(self, tqdm: type) -> None:
        self._bar = tqdm(total=100, unit="%")

    def __call__(self, share: float, doing: str) -> None:
        self._bar.set_description(doing, refresh=False)
        self._bar.update(round(100 * share) - self._bar.n)

    def close(self) -> None:
        self._bar.close()


@contextmanager
def told(progress: Progress, doing: str) -> Iterator[Callable[[float, str], object]]:
    """What is to be called with the share that is done, 0 to 1, and what is being done."""
    if not progress:
        yield lambda share, what="": None
        return
    if callable(progress):
        yield lambda share, what="": progress(share, what or doing)
        return
    try:
        from tqdm.auto import tqdm

        shown = _Bar(tqdm)
    except ImportError:
        shown = _Line()
    try:
        yield lambda share, what="": shown(min(max(share, 0.0), 1.0), what or doing)
    finally:
        shown.close()
