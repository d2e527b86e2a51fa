"""Matrices of finite-element models: databases, sparse files, products out of core, natural modes.

>>> import kvo
>>> with kvo.open("orecar-modes.sim") as db:
...     shape = db["modes"][:, 0]
"""

import os as _os

from . import _core
from ._core import __version__
from ._database import Database, open
from ._errors import *  # noqa: F403
from ._errors import __all__ as _errors
from ._files import read, write
from ._matrix import Matrix, TransposedMatrix
from ._modes import Modes, modes
from ._products import matmul, memory_limit
from ._sparse import HalfStorage, SparseMatrix
from ._spy import spy

__all__ = [
    "Database",
    "HalfStorage",
    "Matrix",
    "Modes",
    "SparseMatrix",
    "TransposedMatrix",
    "__version__",
    "matmul",
    "memory_limit",
    "modes",
    "open",
    "read",
    "scratch_folder",
    "spy",
    "write",
] + _errors


def scratch_folder(path=None):
    """The folder of scratch files: of products of stored matrices, of modes and their factors.

    Parameters
    ----------
    path : path, optional
        The folder from now on, on a disk with room.

    Returns
    -------
    str
        The folder. At first it is that of the environment's TMPDIR, else /var/tmp.
    """
    if path is not None:
        _core.set_scratch_folder(_os.fspath(path))
    return _core.scratch_folder()


scratch_folder(_os.environ.get("TMPDIR") or "/var/tmp")
