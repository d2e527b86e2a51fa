"""Files until they are complete: in a private folder beside the place that they take at the end."""

from __future__ import annotations

import fcntl
import itertools
import os
import re
import shutil

from . import _core

_NAME = re.compile(r"\..+\.[1-9][0-9]*(-[1-9][0-9]*)?\.part", re.DOTALL)
_FLAGS = os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_CLOEXEC


class Part:
    """A new folder beside ``target``, which nobody else may look into, for the file that is to take that place.

    It bears a mark of this process, and is locked while it is in use. What killed processes have left is removed by the next one that makes
    such a folder beside it: of this user, with a name that is made here, marked, its process one of this host that has ended, not locked.

    Attributes
    ----------
    path : str
        What the file is called until then.
    """

    def __init__(self, target: str) -> None:
        parent, name = os.path.split(target)
        remove_leftovers(parent)
        for attempt in itertools.count():
            number = f"{os.getpid()}-{attempt}" if attempt else str(os.getpid())
            self._folder = os.path.join(parent, f".{name}.{number}.part")
            try:
                os.mkdir(self._folder, 0o700)
                break
            except FileExistsError:
                continue
        try:
            self._descriptor = os.open(self._folder, _FLAGS)
            _core.mark_folder(self._descriptor)
            fcntl.flock(self._descriptor, fcntl.LOCK_EX)  # waits for who is looking whether it was left behind
        except BaseException:
            shutil.rmtree(self._folder)
            raise
        self.path = os.path.join(self._folder, name)

    def remove(self) -> None:
        """Removes the folder with what is in it."""
        _remove(self._folder)
        os.close(self._descriptor)


def remove_leftovers(folder: str) -> None:
    """Removes what killed processes have left in a folder. What cannot be removed stays."""
    try:
        names = [name for name in os.listdir(folder or ".") if _NAME.fullmatch(name)]
    except OSError:
        return
    for name in names:
        path = os.path.join(folder, name)
        try:
            descriptor = os.open(path, _FLAGS)
        except OSError:
            continue
        try:
            fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
            if _core.is_left_behind(descriptor):
                _remove(path)
        except OSError:
            pass
        finally:
            os.close(descriptor)


def _remove(folder: str) -> None:
    # The mark goes last, so that the next one may go on where this one is killed.
    for name in os.listdir(folder):
        if name != _core.FOLDER_MARK:
            os.unlink(os.path.join(folder, name))
    shutil.rmtree(folder)
