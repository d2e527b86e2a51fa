#!/usr/bin/env python3
"""C = A B of stored square matrices of order 4096, tile by tile, the way NumPy and h5py users write it; the peers of StoredTimesStored of
KVOSrvDenseMatrixProducts_bench.

    OPENBLAS_NUM_THREADS=1 python3 benchmarks/mtx/blocked_products.py [--benchmark_filter=REGEX]

Prints JSON as Google Benchmark does, for scripts/measure.sh.
"""

import argparse
import json
import re
import statistics
import sys
import tempfile
import time

try:
    import h5py
    import numpy
except ImportError as missing:
    print(missing, file=sys.stderr)
    sys.exit(77)  # as tests say that they were skipped

ORDER = 4096
PAIRS = 2
CHUNK = 512
TILES = (1024, 2048, 4096)


def multiply(a, b, c, order, tile):
    """C := A B; each is anything that is sliced like an array. Holds a tile of each and one of the sum."""
    for i in range(0, order, tile):
        for j in range(0, order, tile):
            total = numpy.zeros((min(tile, order - i), min(tile, order - j)))
            for k in range(0, order, tile):
                total += numpy.asarray(a[i : i + tile, k : k + tile]) @ numpy.asarray(b[k : k + tile, j : j + tile])
            c[i : i + tile, j : j + tile] = total


def seconds(run):
    start = time.perf_counter()
    run()
    return time.perf_counter() - start


def shares(order, ways):
    """The rate of each way over that of the product in memory: medians of pairs, warm."""
    random = numpy.random.default_rng(1)
    a, b = random.standard_normal((order, order)), random.standard_normal((order, order))
    expected = numpy.empty((order, order))
    with tempfile.TemporaryDirectory() as folder, h5py.File(f"{folder}/d.h5", "w", rdcc_nbytes=0) as file:
        stored = {"memmap": [numpy.memmap(f"{folder}/{name}", numpy.float64, "w+", shape=(order, order)) for name in "abc"],
                  "h5py": [file.create_dataset(name, (order, order), chunks=(CHUNK, CHUNK), dtype="f8") for name in "abc"]}
        for matrices in stored.values():
            matrices[0][:], matrices[1][:] = a, b
        for way, tile in ways:
            rates = [seconds(lambda: numpy.matmul(a, b, out=expected)) / seconds(lambda: multiply(*stored[way], order, tile)) for _ in range(PAIRS)]
            assert numpy.allclose(stored[way][2][:], expected, rtol=0, atol=1e-10 * order), way
            yield statistics.median(rates)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--benchmark_filter", default="")
    parser.add_argument("--benchmark_list_tests", action="store_true")
    arguments, _ = parser.parse_known_args()
    names = {f"{way}/{tile}": (way, tile) for way in ("memmap", "h5py") for tile in TILES}
    if arguments.benchmark_list_tests:
        print("\n".join(names))
        return
    names = {name: case for name, case in names.items() if re.search(arguments.benchmark_filter, name)}
    runs = [{"run_name": name, "share": share} for name, share in zip(names, shares(ORDER, names.values()))]
    json.dump({"context": {"h5py": h5py.__version__, "numpy": numpy.__version__}, "benchmarks": runs}, sys.stdout, indent=1)


if __name__ == "__main__":
    main()
