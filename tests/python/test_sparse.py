"""Sparse matrices of databases and files: what scipy makes of them."""

import os
import resource
import signal
import struct
import threading
import time

import h5py
import numpy as np
import pytest
import scipy.io
import scipy.sparse as sp
from conftest import DATA

import kvo


def random_matrix(random, symmetric=False):
    m, n = (int(k) for k in random.integers(1, 60, 2))
    n = m if symmetric else n
    matrix = sp.random(m, n, 0.2, "csr", random_state=int(random.integers(1000)))
    return sp.csr_array(matrix + matrix.T if symmetric else matrix)


def equal(a, b):
    return a.shape == b.shape and abs(sp.csr_array(a) - sp.csr_array(b)).sum() == 0


def is_mapped(array):
    while isinstance(array.base, np.ndarray):
        array = array.base
    return not array.flags.writeable and type(array.base).__name__ == "PyCapsule"


@pytest.mark.parametrize("seed", range(4))
def test_what_is_stored_comes_back_and_multiplies(seed):
    random = np.random.default_rng(seed)
    general, symmetric = random_matrix(random), random_matrix(random, True)
    with kvo.open("a.sim", "x") as db:
        db["matrix"] = general
        db["stiffness"] = symmetric
        assert equal(db.sparse("matrix"), general)
    with kvo.open("a.sim") as db, h5py.File("a.sim") as file:
        k = db["stiffness"]
        assert k.symmetric and not db["matrix"].symmetric
        assert equal(db.sparse("matrix"), general) and equal(db.sparse("stiffness"), symmetric)
        assert equal(db.sparse("matrix", check=True), general)
        triangle, diagonal = half = db.sparse("stiffness", half=True)
        assert equal(half.full(), symmetric) and equal(triangle + triangle.T + sp.diags(diagonal), symmetric)
        np.testing.assert_array_equal(triangle.data, file["context_0/distribution_1_drawer_0/values"])
        x = random.random((general.shape[1], 3))
        np.testing.assert_allclose(db["matrix"] @ x, general @ x, rtol=1e-13)
        np.testing.assert_allclose(db["matrix"].T @ (general @ x), general.T @ (general @ x), rtol=1e-13)
        np.testing.assert_allclose(k @ k.toarray()[:, 0], symmetric @ symmetric.toarray()[:, 0], rtol=1e-12, atol=1e-12)
        with pytest.raises(ValueError):
            db.sparse("matrix", half=True)


def test_mapped_arrays_are_not_copied_and_outlive_the_file(tmp_path):
    n = 300_000
    big = sp.diags([np.arange(1.0, n), np.arange(1.0, n + 1)], [1, 0], format="csr")
    with kvo.open("big.sim", "x") as db:
        db.create("matrix", data=big)
        db.create("mass", data=sp.csr_array(big + big.T))
        assert not is_mapped(db.sparse("matrix").data)  # of a file that may still change
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    with kvo.open("big.sim") as db:
        k, half = db.sparse("matrix"), db.sparse("mass", half=True)
    assert all(map(is_mapped, (k.data, k.indices, k.indptr, half.triangle.data, half.diagonal)))
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 1024
    with pytest.raises(ValueError):
        k.data[0] = 1
    (tmp_path / "big.sim").unlink()
    assert k.sum() == big.sum() and half.full().diagonal()[-1] == 2 * n


@pytest.mark.parametrize("ending", ["mtx", "sim", "triplets", "csv", "chunks", "dense", "nodes"])
def test_files_of_every_format(ending):
    random = np.random.default_rng(7)
    symmetric = random_matrix(random, True)
    general = sp.csr_array(np.pad(random_matrix(random).toarray(), ((0, 1), (0, 2))))  # nothing in its corner
    half = kvo.HalfStorage(sp.triu(symmetric, 1, "csr"), symmetric.diagonal())
    for matrix in [symmetric, half] if ending == "chunks" else [symmetric, half, general]:
        whole = matrix.full() if isinstance(matrix, kvo.HalfStorage) else matrix
        if ending == "nodes":
            numbers = np.arange(2 * whole.shape[0]).reshape(-1, 2)
            kvo.write("a.nodes", matrix, nodes=numbers)
            table = np.loadtxt("a.nodes", delimiter=",", ndmin=2)
            back = sp.coo_array((table[:, 4], (table[:, 0] / 2, (table[:, 2] if whole is general else table[:, 2] / 2))), whole.shape)
        else:
            kvo.write(f"a.{ending}", matrix)
            if ending == "csv":
                table = np.loadtxt("a.csv", delimiter=",", ndmin=2)
                back = sp.coo_array((table[:, 2], (table[:, 0], table[:, 1])), whole.shape)
            else:
                back = kvo.read(f"a.{ending}")
        assert abs(back - whole).max() <= (1e-15 if ending in ("csv", "nodes") else 0) * abs(whole).max()  # sixteen digits of a text
    if ending in ("mtx", "dense", "sim"):
        dense = random.random((5, 4))
        kvo.write(f"d.{ending}", dense)
        back = kvo.read("d.sim:0") if ending == "sim" else kvo.read(f"d.{ending}").toarray()
        np.testing.assert_array_equal(back, dense)


class Stop(Exception):
    pass


def expect_signal_ends(work, name):
    """Handlers run while the file is open; what they raise ends the work."""

    def is_open():
        return any(os.path.basename(os.path.realpath(f"/proc/self/fd/{number}")) == name for number in os.listdir("/proc/self/fd"))

    def send():
        while not is_open():
            time.sleep(0.001)
        os.kill(os.getpid(), signal.SIGUSR1)

    def handle(*_):
        if is_open():
            raise Stop
        threading.Thread(target=send, daemon=True).start()  # too late: once more

    before = signal.signal(signal.SIGUSR1, handle)
    try:
        handle()
        with pytest.raises(Stop):
            for _ in range(30):
                work()
    finally:
        signal.signal(signal.SIGUSR1, before)


def test_ctrl_c_ends_reading_and_writing_of_files_and_loses_nothing():
    n = 700_000
    long = sp.diags([np.full(n, 1 / 3), np.full(n, 2 / 3), np.full(n, 1 / 7)], [-1, 0, 1], (n, n), format="csr")
    kvo.write("long.triplets", long)
    kvo.write("a.triplets", np.eye(2))
    expect_signal_ends(lambda: kvo.read("long.triplets"), "long.triplets")
    expect_signal_ends(lambda: kvo.write("a.triplets", long), "a.triplets")
    expect_signal_ends(lambda: kvo.write("a.mtx", np.full((2000, 1000), 1 / 3)), "a.mtx")
    assert equal(kvo.read("a.triplets"), sp.eye(2)) and sorted(os.listdir()) == ["a.triplets", "long.triplets", "scratch"]


def test_files_that_are_read_only_and_wrong_ones(tmp_path):
    def record(items):
        return struct.pack("<i", len(items)) + items + struct.pack("<i", len(items))

    (tmp_path / "a.records").write_bytes(
        record(struct.pack("<i", 2)) + record(struct.pack("<3i2d", 2, 1, 2, 4.0, 1.0)) + record(struct.pack("<2id", 1, 2, 3.0))
    )
    np.testing.assert_array_equal(kvo.read("a.records").toarray(), [[4, 1], [1, 3]])
    (tmp_path / "old").write_text("1 1 2.5 2 2 -1")
    for number in (2, None):
        np.testing.assert_array_equal(kvo.read("old", number).toarray(), [[2.5, 0], [0, -1]])
    assert equal(kvo.read(DATA / "west0479.mtx"), sp.csr_array(scipy.io.mmread(DATA / "west0479.mtx")))
    (tmp_path / "bad.mtx").write_text("%%MatrixMarket matrix coordinate real general\n2 2 1\n3 1 1.0\n")
    with pytest.raises(kvo.MalformedFileError) as caught:
        kvo.read("bad.mtx")
    assert (caught.value.number, caught.value.place) == (210, "line 3") and "bad.mtx" in caught.value.text
    with pytest.raises(kvo.OpenFileError) as caught:
        kvo.read("none.mtx")
    assert caught.value.number == 202 and isinstance(caught.value, OSError)
    (tmp_path / "old2").write_text("?")
    for call in (lambda: kvo.read("old2"), lambda: kvo.write("a.records", np.eye(2)), lambda: kvo.write("a.nodes", np.eye(2)),
                 lambda: kvo.write("a.chunks", np.array([[1.0, 2], [3, 4]]))):
        with pytest.raises(ValueError):
            call()
    assert sorted(path.name for path in tmp_path.glob("*.part*")) == []
