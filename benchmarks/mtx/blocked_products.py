#!/usr/bin/env python3
"""C = A B of stored square matrices, tile by tile, the way NumPy and h5py users write it; the peers of KVOSrvDenseMatrixProducts_bench's
StoredTimesStored. Times are the medians of `rounds` rounds, warm; each is compared with the product in memory of the same round.

    OPENBLAS_NUM_THREADS=1 python3 blocked_products.py [order [rounds]]
"""

import os
import pathlib
import statistics
import sys
import tempfile
import time

import h5py
import numpy

CHUNK = 512
TILES = (1024, 2048, 4096)


def blas_libraries():
    """The files that NumPy's BLAS comes from."""
    names = {line.split()[-1] for line in pathlib.Path("/proc/self/maps").read_text().splitlines()}
    return sorted(name for name in names if "blas" in pathlib.Path(name).name)


def multiply(a, b, c, order, tile):
    """C := A B; each is anything that is sliced like an array. Holds a tile of each and one of the sum."""
    for i in range(0, order, tile):
        for j in range(0, order, tile):
            total = numpy.zeros((min(tile, order - i), min(tile, order - j)))
            for k in range(0, order, tile):
                total += numpy.asarray(a[i : i + tile, k : k + tile]) @ numpy.asarray(b[k : k + tile, j : j + tile])
            c[i : i + tile, j : j + tile] = total


def seconds(run):
    start = time.perf_counter(), time.process_time()
    run()
    return time.perf_counter() - start[0], time.process_time() - start[1]


def main():
    order = int(sys.argv[1]) if len(sys.argv) > 1 else 4096
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    random = numpy.random.default_rng(1)
    a, b = random.standard_normal((order, order)), random.standard_normal((order, order))
    expected = numpy.empty((order, order))
    print(f"order {order}, NumPy {numpy.__version__}, h5py {h5py.__version__}, threads {os.environ.get('OPENBLAS_NUM_THREADS', 'any')}")
    print("BLAS:", *map(os.path.realpath, blas_libraries()))
    with tempfile.TemporaryDirectory() as folder:
        mapped = [numpy.memmap(f"{folder}/{name}", numpy.float64, "w+", shape=(order, order)) for name in "abc"]
        file = h5py.File(f"{folder}/d.h5", "w", rdcc_nbytes=0)
        stored = [file.create_dataset(name, (order, order), chunks=(CHUNK, CHUNK), dtype="f8") for name in "abc"]
        for way in (mapped, stored):
            way[0][:], way[1][:] = a, b
        runs = {(name, tile): lambda way=way, tile=tile: multiply(*way, order, tile)
                for name, way in (("memmap", mapped), ("h5py", stored)) for tile in TILES if tile <= order}
        ratios = {key: [] for key in runs}
        for _ in range(rounds):
            peer = seconds(lambda: numpy.matmul(a, b, out=expected))
            for key, run in runs.items():
                ratios[key].append([mine / its for mine, its in zip(seconds(run), peer)])
        for name, way in (("memmap", mapped), ("h5py", stored)):
            assert numpy.allclose(way[2][:], expected, rtol=0, atol=1e-10 * order), name
        for (name, tile), pairs in ratios.items():
            wall, processor = (statistics.median(values) for values in zip(*pairs))
            print(f"{name:7} tiles of {tile}: time to that in memory {wall:.3f}, by processor time {processor:.3f}")
        file.close()


if __name__ == "__main__":
    main()
