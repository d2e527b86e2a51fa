"""Times of the Python package beside those of h5py for the same work, in the same process and in turns: kvo_bench.py FOLDER [WORD ...].

The words choose among import, dense, sparse, product and interrupt. "library" is one transfer of the library into an array that is there,
which is what the C++ call does.
"""

import os
import pathlib
import resource
import subprocess
import sys
import time

import h5py
import numpy as np

import kvo
from kvo import _transfer
from kvo._selection import select

N, CHUNK, ROUNDS = 2048, 512, 7


def best(*works):
    """The shortest and the middle time of each, in milliseconds, in turns."""
    times = [[] for _ in works]
    for _ in range(ROUNDS):
        for work, taken in zip(works, times):
            begin = time.perf_counter()
            kept = work()
            taken.append(1e3 * (time.perf_counter() - begin))
            del kept
    return [(min(taken), sorted(taken)[len(taken) // 2]) for taken in times]


def show(what, names, figures):
    print(f"{what:34s}" + "".join(f"  {name} {low:8.3f} ({middle:8.3f})" for name, (low, middle) in zip(names, figures)), flush=True)


def dense(folder):
    values = np.asfortranarray(np.random.default_rng(1).random((N, N)))
    with kvo.open(folder / "dense.sim", "w") as db:
        db.create("x", data=values, chunks=(CHUNK, CHUNK))
    with h5py.File(folder / "dense.h5", "w") as file:
        file.create_dataset("x", data=values.T, chunks=(CHUNK, CHUNK))
    keys = {"whole": np.s_[:, :], "100 rows": np.s_[700:800, :], "100 columns": np.s_[:, 700:800], "one column": np.s_[:, 5],
            "300 x 300": np.s_[600:900, 600:900], "every 7th row": np.s_[::7, :], "40 rows of a list": np.s_[list(range(0, 2000, 50)), :]}
    with kvo.open(folder / "dense.sim", "r+") as db, h5py.File(folder / "dense.h5", "r+") as file:
        x, y = db["x"], file["x"]
        for what, key in keys.items():
            axes = select(key, x.shape)
            there = _transfer.read(x._store, axes)
            names, works = ["kvo", "h5py"], [lambda: x[key], lambda: y[key[::-1]]]
            if all(axis.is_run for axis in axes):
                first, count = [axis.first for axis in axes], [axis.count for axis in axes]
                names, works = names + ["library"], works + [lambda: x._store.read(first, count, there)]
            show("read " + what, names, best(*works))
            new = x[key]
            turned = np.ascontiguousarray(new.T)

            def assign():
                x[key] = new

            def assign_there():
                y[key[::-1]] = turned

            works = [assign, assign_there]
            if len(names) > 2:
                works.append(lambda: x._store.write(first, count, there))
            show("write " + what, names, best(*works))


def sparse(folder):
    import scipy.sparse as sp

    rows = 400_000
    general = sp.diags([np.full(rows, float(k)) for k in range(20)], range(-10, 10), shape=(rows, rows), format="csr")
    with kvo.open(folder / "sparse.sim", "w") as db:
        db.create("general", data=general, half=False)
        db.create("half", data=sp.csr_array(general + general.T), half=True)
    for what, half in (("general", False), ("half", True)):
        with kvo.open(folder / "sparse.sim") as db:
            db.sparse(what, half=half)  # scipy is imported, the catalogue read
            before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
            figures = best(lambda: db.sparse(what, half=half))
            grown = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before
            entries = db[what].nnz
            expanded = best(lambda: db.sparse(what)) if half else []
        show(f"sparse {what}, {entries} entries", ["kvo"], figures)
        print(f"    resident memory grew by {grown} KiB")
        if expanded:
            show("    expanded", ["kvo"], expanded)


def product(folder, n=4096):
    path = folder / "product.sim"
    if not path.exists():
        random = np.random.default_rng(1)
        with kvo.open(path, "w") as db:
            for title in ("a", "b"):
                db.create(title, data=np.asfortranarray(random.random((n, n))), chunks=(CHUNK, CHUNK))
    kvo.scratch_folder(folder)
    with kvo.open(path) as db:
        begin = time.perf_counter()
        c = db["a"] @ db["b"]
        print(f"a @ b, {n}^3, stored: {time.perf_counter() - begin:.3f} s, c[7, 9] = {c[7, 9]:.12g}", flush=True)


def imports(folder):
    del folder
    for what in ("numpy", "numpy, kvo", "numpy, h5py", "numpy, scipy.sparse"):
        command = [sys.executable, "-c", f"import time; import {what}"]
        times = []
        for _ in range(ROUNDS):
            begin = time.perf_counter()
            subprocess.run(command, check=True)
            times.append(time.perf_counter() - begin)
        print(f"import {what:24s} {1e3 * min(times):8.1f} ms", flush=True)


if __name__ == "__main__":
    works = {"import": imports, "dense": dense, "sparse": sparse, "product": product}
    place = pathlib.Path(sys.argv[1])
    for word in sys.argv[2:] or works:
        works[word](place)
