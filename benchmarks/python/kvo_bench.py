#!/usr/bin/env python3
"""The Python package beside h5py and beside the library itself, in the same process and in turns.

    OPENBLAS_NUM_THREADS=1 PYTHONPATH=build/bench/python python3 benchmarks/python/kvo_bench.py [--benchmark_filter=REGEX]

Prints JSON as Google Benchmark does, for scripts/measure.sh. 2048 x 2048 doubles in chunks of 512 x 512, in the page cache. Medians of pairs:
`library` is the time over that of one transfer of the library into an array that is there, `h5py` over that of h5py on a file of the same
layout. The product of stored matrices has the benchmark of KVOSrvDenseMatrix::Multiply beside it, which makes the same one in C++.
"""

import argparse
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import time

N, CHUNK, ORDER = 2048, 512, 4096
ROWS = 400_000  # of the sparse matrices, of 20 diagonals
STORED = "StoredTimesStored/4096"
SLICES = {"whole": (slice(None), slice(None)), "1000 rows": (slice(700, 1700), slice(None)), "100 rows": (slice(700, 800), slice(None)),
          "100 columns": (slice(None), slice(700, 800)), "300 x 300": (slice(600, 900), slice(600, 900)), "one column": (slice(None), 5),
          "every 7th row": (slice(None, None, 7), slice(None)), "40 rows of a list": (list(range(0, 2000, 50)), slice(None))}


def seconds(work):
    begin = time.perf_counter()
    kept = work()
    taken = time.perf_counter() - begin
    del kept
    return taken


def ratio(work, peer, least=0.6):
    """The median of work's time over that of its peer in the same turn; either is the first in every other one, as what is second finds more in
    the caches."""
    seen = []
    begin = time.perf_counter()
    while time.perf_counter() - begin < least or len(seen) < 8:
        if len(seen) % 2:
            own, other = seconds(work), seconds(peer)
        else:
            other, own = seconds(peer), seconds(work)
        seen.append(own / other)
    return statistics.median(seen)


def slices(folder, what, direction):
    import h5py
    import kvo
    import numpy as np
    from kvo import _transfer
    from kvo._selection import select

    key = SLICES[what]
    values = np.asfortranarray(np.random.default_rng(1).random((N, N)))
    with kvo.open(folder / "dense.sim", "w") as db:
        db.create("x", data=values, chunks=(CHUNK, CHUNK))
    with h5py.File(folder / "dense.h5", "w") as file:
        file.create_dataset("x", data=values.T, chunks=(CHUNK, CHUNK))
    with kvo.open(folder / "dense.sim", "r+") as db, h5py.File(folder / "dense.h5", "r+") as file:
        x, y = db["x"], file["x"]
        axes = select(key, x.shape)
        there = _transfer.read(x._store, axes)
        first, count = [axis.first for axis in axes], [axis.count for axis in axes]
        new = x[key]
        turned = np.ascontiguousarray(new.T)
        if not (np.array_equal(new, values[key]) and np.array_equal(y[key[::-1]].T, new)):
            raise RuntimeError("the values differ")

        def write():
            x[key] = new

        def write_by_h5py():
            y[key[::-1]] = turned

        if direction == "read":
            own, peers = lambda: x[key], {"h5py": lambda: y[key[::-1]], "library": lambda: x._store.read(first, count, there)}
        else:
            own, peers = write, {"h5py": write_by_h5py, "library": lambda: x._store.write(first, count, there)}
        if not all(axis.is_run for axis in axes):
            del peers["library"]
        return {name: ratio(own, peer) for name, peer in peers.items()}


def resident():
    return int(pathlib.Path("/proc/self/statm").read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE") / 2**20


def sparse(folder, what):
    import kvo
    import numpy as np
    import scipy.sparse as sp

    general = sp.diags([np.full(ROWS, float(k)) for k in range(20)], range(-10, 10), shape=(ROWS, ROWS), format="csr")
    half = what != "general"
    with kvo.open(folder / "sparse.sim", "w") as db:
        db.create("matrix", data=sp.csr_array(general + general.T) if half else general, half=half)
    with kvo.open(folder / "sparse.sim") as db:
        db.sparse("matrix", half=half)  # the catalogue is read
        times = [seconds(lambda: db.sparse("matrix", half=half)) for _ in range(20)]
        before = resident()
        kept = [db.sparse("matrix", half=half) for _ in range(8)]
        return {"ms": 1e3 * statistics.median(times), "grown_MiB": (resident() - before) / len(kept)}


def product(folder):
    import kvo
    import numpy as np

    program = pathlib.Path(os.environ.get("KVO_BENCHMARKS", "build/bench/benchmarks")) / "mtx/KVOSrvDenseMatrixProducts_bench"
    random = np.random.default_rng(1)
    with kvo.open(folder / "product.sim", "w") as db:
        for title in ("a", "b"):
            db.create(title, data=np.asfortranarray(random.random((ORDER, ORDER))), chunks=(CHUNK, CHUNK))
    kvo.scratch_folder(folder)
    with kvo.open(folder / "product.sim") as db:
        def own():
            return db["a"] @ db["b"]

        def of_library():
            command = [program, f"--benchmark_filter=^{STORED}/", "--benchmark_min_time=0", "--benchmark_format=json"]
            ran = subprocess.run(command, check=True, capture_output=True, text=True)
            return json.loads(ran.stdout)["benchmarks"][0]["real_time"] * 1e-3

        c = own()
        if not np.allclose(c[7], db["a"][7] @ db["b"][...], rtol=1e-12):
            raise RuntimeError("wrong result")
        del c
        return {"library": statistics.median(seconds(own) / of_library() for _ in range(3))}


def imports(_):
    def load(what):
        return seconds(lambda: subprocess.run([sys.executable, "-c", f"import {what}"], check=True))

    return {"beyond_numpy_ms": 1e3 * statistics.median(load("numpy, kvo") - load("numpy") for _ in range(9))}


def cases():
    for what in SLICES:
        for direction in ("read", "written"):
            yield f"{what}/{direction}", lambda folder, args=(what, direction): slices(folder, *args)
    for what in ("general", "half"):
        yield f"sparse/{what}", lambda folder, what=what: sparse(folder, what)
    yield f"product/{ORDER}", product
    yield "import", imports


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--benchmark_filter", default="")
    parser.add_argument("--benchmark_list_tests", action="store_true")
    arguments, _ = parser.parse_known_args()
    chosen = [(name, run) for name, run in cases() if re.search(arguments.benchmark_filter, name)]
    if arguments.benchmark_list_tests:
        print("\n".join(name for name, _ in chosen))
        return
    try:
        import h5py
        import kvo
    except ImportError as missing:
        print(missing, file=sys.stderr)
        sys.exit(77)  # as tests say that they were skipped
    runs = []
    for name, run in chosen:
        with tempfile.TemporaryDirectory() as folder:
            runs.append({"run_name": name} | run(pathlib.Path(folder)))
    json.dump({"context": {"h5py": h5py.__version__, "kvo": kvo.__version__}, "benchmarks": runs}, sys.stdout, indent=1)


if __name__ == "__main__":
    main()
