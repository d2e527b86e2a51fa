"""Databases: modes of opening, names, transactions, failures, and what outlives a database."""

import gc
import os
import pickle
import shutil
import subprocess
import sys
import threading

import h5py
import numpy as np
import pytest
import scipy.sparse as sp

import kvo


def test_modes_of_opening(tmp_path):
    with pytest.raises(kvo.NotFoundError) as caught:
        kvo.open("a.sim")
    assert caught.value.number == 500 and caught.value.path == "a.sim" and isinstance(caught.value, FileNotFoundError)
    assert "a.sim" in caught.value.text and str(caught.value) == caught.value.text != caught.value.report
    assert pickle.loads(pickle.dumps(caught.value)).__dict__ == caught.value.__dict__
    with kvo.open("a.sim", "x") as db:
        db["modes"] = np.ones((3, 2))
    with pytest.raises(kvo.ExistsError):
        kvo.open("a.sim", "x")
    (tmp_path / "text.sim").write_text("no database")
    with pytest.raises(kvo.ForeignError):
        kvo.open("text.sim")
    with kvo.open("a.sim") as db:
        with pytest.raises(kvo.InUseError):
            kvo.open("a.sim", "r+")
        with pytest.raises(kvo.MisuseError):
            db["modes"][0] = 1
        assert db.check() == []
    with kvo.open("a.sim", "r+") as db:
        db["modes"][0] = 5
    with pytest.raises(ZeroDivisionError), kvo.open("a.sim", "w") as db:
        db["mass"] = np.eye(2)
        1 / 0
    with kvo.open("a.sim") as db:  # the old one stays
        np.testing.assert_array_equal(db["modes"], [[5, 5], [1, 1], [1, 1]])
    os.symlink("a.sim", "link.sim")
    with kvo.open("link.sim", "w") as db:
        x = db.create("mass", data=np.eye(2))
        y = x.T
        with kvo.open("a.sim") as old:
            assert list(old) == ["modes"]
        db.commit()
        with h5py.File("a.sim", locking=False) as file:
            assert file["context_0/distribution_0_drawer_0"].shape == (2, 2)
        x[0] = 8  # goes on, in the file of that name
        np.testing.assert_array_equal(y[0], [8, 0])
    with kvo.open("a.sim") as db:
        np.testing.assert_array_equal(db["mass"], [[8, 8], [0, 1]])
    assert os.path.islink("link.sim") and sorted(os.listdir()) == ["a.sim", "link.sim", "scratch", "text.sim"]


KILLED = """
import os, signal
import kvo
db = kvo.open("a.sim", "w")
db["mass"] = [[1.0]]
os.kill(os.getpid(), signal.SIGKILL)
"""


def test_what_a_killed_process_left_goes_with_the_next_one(tmp_path):
    subprocess.run([sys.executable, "-c", KILLED])
    (left,) = tmp_path.glob(".*.part")
    foreign = [tmp_path / f".a.sim.{left.name.split('.')[3]}-1.part", tmp_path / "a.part"]
    for folder in foreign:
        folder.mkdir()
    shutil.copy(left / ".kvo", foreign[1])
    with kvo.open("b.sim", "w") as first, kvo.open("b.sim", "w") as second:
        assert not left.exists() and len(list(tmp_path.glob(".b.sim.*.part"))) == 2
        second["mass"], first["modes"] = np.eye(2), np.eye(3)
    assert sorted(os.listdir()) == sorted([folder.name for folder in foreign] + ["b.sim", "scratch"])
    with kvo.open("b.sim") as db:
        assert list(db) == ["modes"]  # who closed it last
    with pytest.raises(kvo.NotFoundError):
        kvo.open("none/b.sim", "w")


def test_names_are_titles_or_numbers():
    with kvo.open("a.sim", "x") as db:
        db["modes"] = np.zeros((2, 2))
        db.create(data=np.arange(3, dtype=np.int32))
        db.create("Träger 1", data=np.eye(2), unit="N/m", description="of the beam")
        second = db.create("modes", data=np.eye(3))
        k = db.create("stiffness", data=sp.eye(4).tocsr())
        assert list(db) == db.keys() == ["modes", "1", "Träger 1", "modes (2)", "stiffness"] and len(db) == 5
        assert [matrix.name for matrix in db.values()] == list(db) and k.name == "stiffness"
        assert db[3] is second is db["modes (2)"] and db["0"] is db["modes"] and db["distribution_3_drawer_0"] is second
        assert "1" in db and "5" not in db and db["1"].dtype == np.int32
        db.set_title(3, "shapes")
        assert db["shapes"] is second and "modes (2)" not in db
        for name in ("mass", 5, "1.0", "x"):
            with pytest.raises(KeyError):
                db[name]
        for call in (lambda: db.create(), lambda: db.create(shape=(2, -1)), lambda: db.create(shape=3, chunks=(2, 2)),
                     lambda: db.__setitem__("modes", 1)):
            with pytest.raises(ValueError):
                call()
        with pytest.raises(kvo.MisuseError):
            db.create("a/b", shape=3)
        with pytest.raises(TypeError):
            db.create(shape=3, dtype="c16")
        assert "3 x 3" in repr(db) and "3 x 3" in repr(second) and "<table>" in db._repr_html_() and len(db) == 5
    with kvo.open("a.sim") as db, h5py.File("a.sim") as file:
        assert set(file) == {"context_0", "modes", "Träger 1", "shapes", "stiffness"}
        assert (db["Träger 1"].unit, db["Träger 1"].description) == ("N/m", "of the beam")
        np.testing.assert_array_equal(file["shapes"], db["shapes"])


def test_transactions_keep_all_or_nothing():
    with kvo.open("a.sim", "x") as db:
        with db.transaction():
            kept = db.create(data=np.ones(4))
        with pytest.raises(KeyboardInterrupt), db.transaction():
            lost = db.create(data=np.ones((5, 5)))
            kept[0] = 9
            raise KeyboardInterrupt
        with pytest.raises(kvo.DatabaseError):
            lost[0]
        with db.transaction(), pytest.raises(RuntimeError), db.transaction():
            pass
        assert list(db) == ["0"]
    with kvo.open("a.sim") as db:
        np.testing.assert_array_equal(db[0], [9, 1, 1, 1])


def test_memory_that_cannot_be_had_and_what_is_read_only():
    with kvo.open("a.sim", "x") as db:
        huge = db.create(shape=(2**31 - 1, 2**20), chunks=(1000, 1000))  # nothing of it is stored
        with pytest.raises(MemoryError):
            huge[...]
        assert huge[2**31 - 2, ::2**18].tolist() == [0, 0, 0, 0]
        array = np.ones((2, 2), order="F")
        array.flags.writeable = False
        with pytest.raises(ValueError):
            db.create(data=np.eye(2)).read(out=array)


def test_a_closed_database_is_told_and_arrays_live_on():
    values = np.random.default_rng(1).random((400, 300))
    with kvo.open("a.sim", "x") as db:
        x = db.create("modes", data=values, chunks=(64, 64))
        db["matrix"] = kvo.read(os.path.join(os.path.dirname(__file__), "../../data/bcsstk01.mtx"))
    db = kvo.open("a.sim")
    x, k = db["modes"], db["matrix"]
    part, column, transposed = x[10:200, 5:], x[:, 3], x.T[:40]
    csr = db.sparse("matrix")
    db.close()
    db.close()
    calls = [lambda: x[0], lambda: np.asarray(x), lambda: x @ np.ones(300), lambda: x.T @ x, lambda: db["modes"], lambda: list(db),
             lambda: db.sparse("matrix"), lambda: k @ np.ones(48), lambda: db.commit(), lambda: db.create(shape=3)]
    for call in calls:
        with pytest.raises(kvo.ClosedError) as caught:
            call()
        assert caught.value.number == 500 and caught.value.text
    os.unlink("a.sim")
    del db, x, k
    gc.collect()
    np.testing.assert_array_equal(part, values[10:200, 5:])
    np.testing.assert_array_equal(column, values[:, 3])
    np.testing.assert_array_equal(transposed, values.T[:40])
    assert csr.sum() != 0


def test_threads_take_turns_in_one_file_and_read_side_by_side_in_several():
    values = np.random.default_rng(2).random((500, 400))
    with kvo.open("a.sim", "x") as db:
        db.create("modes", data=values, chunks=(100, 90))
        db.create("mass", shape=values.shape, chunks=(7, 11))
    wrong, closed = [], []

    def work(number, db):
        try:
            use(number, db)
        except kvo.ClosedError:
            closed.append(number)

    def use(number, db):
        random = np.random.default_rng(number)
        for _ in range(60):
            a, b = sorted(int(n) for n in random.integers(0, 400, 2))
            x = db["modes"]
            if not np.array_equal(x[a : b + 1, a:], values[a : b + 1, a:]) or not np.array_equal(x[a::7, [0, b]], values[a::7, [0, b]]):
                wrong.append((a, b))
            if db.mode != "r":
                db["mass"][number::8, ::2] = number  # each its own rows, between those of the others

    with kvo.open("a.sim", "r+") as db:
        threads = [threading.Thread(target=work, args=(n, db)) for n in range(8)]
        [thread.start() for thread in threads]
        [thread.join() for thread in threads]
        np.testing.assert_array_equal(db["mass"], np.where(np.arange(400) % 2, 0, np.arange(500)[:, None] % 8))
    several = [kvo.open("a.sim") for _ in range(4)]
    threads = [threading.Thread(target=work, args=(n, db)) for n, db in enumerate(several)]
    [thread.start() for thread in threads]
    several[0].close()  # in the middle of it: an error in that thread, and nothing else
    [thread.join() for thread in threads]
    assert not wrong and set(closed) <= {0}


INTERRUPTED = """
import os, signal, threading, time, sys
import numpy as np
import kvo
kvo.scratch_folder(".")
db = kvo.open("a.sim", "r+")
x = db["modes"]
work = {"read": lambda: x[...], "write": lambda: x.write(np.ones(x.shape)), "product": lambda: x.T @ x,
        "modes": lambda: kvo.modes(*pair, count=12)}
if sys.argv[1] == "modes":
    import scipy.sparse as sp
    n = 28
    line = sp.diags([-1.0, 2, -1], [-1, 0, 1], (n, n))
    k = sp.kronsum(sp.kronsum(line, line), line).tocsr()
    pair = k, sp.eye(n**3).tocsr()
with db.transaction():
    db.create("mass", data=np.arange(5.0))
def interrupt():
    time.sleep(0.3)
    global sent
    sent = time.monotonic()
    os.kill(os.getpid(), signal.SIGINT)
threading.Thread(target=interrupt).start()
try:
    while True:
        work[sys.argv[1]]()
except KeyboardInterrupt:
    print(time.monotonic() - sent)
    np.testing.assert_array_equal(db["mass"], np.arange(5.0))
    db.close()
"""


@pytest.mark.parametrize("what", ["read", "write", "product", "modes"])
def test_ctrl_c_stops_long_calls(what):
    with kvo.open("a.sim", "x") as db:
        db.create("modes", shape=(3000, 2500), chunks=(500, 500))[...] = 1
    ended = subprocess.run([sys.executable, "-c", INTERRUPTED, what], capture_output=True, text=True, timeout=120)
    assert ended.returncode == 0, ended.stderr
    with kvo.open("a.sim") as db:
        np.testing.assert_array_equal(db["mass"], np.arange(5.0))
