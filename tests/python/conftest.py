"""What the tests of the package share: a folder of scratch files each, and names of the data."""

import os
import pathlib

import pytest

import kvo

DATA = pathlib.Path(__file__).resolve().parents[2] / "data"


@pytest.fixture(autouse=True)
def scratch(tmp_path, monkeypatch):
    """Each test works in a folder of its own and leaves no scratch file."""
    monkeypatch.chdir(tmp_path)
    folder = tmp_path / "scratch"
    folder.mkdir()
    kvo.scratch_folder(folder)
    yield folder
    import gc

    gc.collect()
    assert os.listdir(folder) == []
