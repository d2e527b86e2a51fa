#!/usr/bin/env python3
"""What another reader takes for the transfers of KVOSrvDenseMatrix_bench: h5py, on a file of the same layout.

    python3 benchmarks/platform/h5py_transfers.py [--benchmark_filter=REGEX]

Prints JSON as Google Benchmark does, for scripts/measure.sh. Needs h5py and numpy. 8192 x 8192 doubles in square chunks, everything in the page cache. `share` is the rate of h5py over that of numpy,
which copies the same values between two arrays in memory, one of them laid out chunk by chunk as the file is. Medians of pairs, by the clock.
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

ORDER = 8192
PAIRS = 5


def pieces(first, end, chunk):
    """(chunk, first and end within it, first and end within the range) for the chunks that a range touches."""
    while first < end:
        stop = min(end, (first // chunk + 1) * chunk)
        yield first // chunk, slice(first % chunk, stop - first // chunk * chunk), slice(first, stop)
        first = stop


def copy_in_memory(memory, chunk, columns, rows, buffer, write):
    for column_chunk, columns_inside, column_range in pieces(columns.start, columns.stop, chunk):
        for row_chunk, rows_inside, row_range in pieces(rows.start, rows.stop, chunk):
            stored = memory[column_chunk, row_chunk, columns_inside, rows_inside]
            packed = buffer[column_range.start - columns.start:column_range.stop - columns.start,
                            row_range.start - rows.start:row_range.stop - rows.start]
            numpy.copyto(stored, packed) if write else numpy.copyto(packed, stored)


def windows(kind, chunk):
    """(columns, rows) of each transfer; the same as in the benchmark of the library."""
    everything = slice(0, ORDER)
    if kind == "whole blocks":
        starts = range(0, ORDER, chunk)
        return [(slice(c, c + chunk), slice(r, r + chunk)) for c in starts for r in starts]
    if kind == "100 rows":
        return [(everything, slice(r, r + 100)) for r in range(0, ORDER - 99, 453)]
    if kind == "one column":
        return [(slice(c, c + 1), everything) for c in range(0, ORDER, 37)]
    starts = range(chunk - 150, ORDER - 299, chunk)
    return [(slice(c, c + 300), slice(r, r + 300)) for c in starts for r in starts]


def transfer(dataset, columns, rows, buffer, write):
    if write:
        dataset.write_direct(buffer, dest_sel=numpy.s_[columns, rows])
    else:
        dataset.read_direct(buffer, source_sel=numpy.s_[columns, rows])


def seconds(run):
    start = time.perf_counter()
    run()
    return time.perf_counter() - start


def share(dataset, memory, chunk, kind, write):
    parts = windows(kind, chunk)
    buffer = numpy.ones((parts[0][0].stop - parts[0][0].start, parts[0][1].stop - parts[0][1].start))

    def with_h5py():
        for columns, rows in parts:
            transfer(dataset, columns, rows, buffer, write)

    def in_memory():
        for columns, rows in parts:
            copy_in_memory(memory, chunk, columns, rows, buffer, write)

    return statistics.median(seconds(in_memory) / seconds(with_h5py) for _ in range(PAIRS))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--benchmark_filter", default="")
    parser.add_argument("--benchmark_list_tests", action="store_true")
    arguments, _ = parser.parse_known_args()
    names = {f"{kind}/{direction}/{chunk}": (kind, direction == "written", chunk) for chunk in (512, 1024)
             for kind in ("whole blocks", "100 rows", "one column", "300 x 300") for direction in ("read", "written")}
    if arguments.benchmark_list_tests:
        print("\n".join(names))
        return
    names = {name: case for name, case in names.items() if re.search(arguments.benchmark_filter, name)}
    runs = []
    for chunk in sorted({chunk for _, _, chunk in names.values()}):
        chunks = ORDER // chunk
        memory = numpy.zeros((chunks, chunks, chunk, chunk))
        with tempfile.TemporaryDirectory() as folder, h5py.File(f"{folder}/transfers.h5", "w", libver=("earliest", "v110")) as file:
            dataset = file.create_dataset("values", (ORDER, ORDER), "f8", chunks=(chunk, chunk))
            for columns, rows in windows("whole blocks", chunk):
                block = numpy.add.outer(numpy.arange(columns.start, columns.stop) * float(ORDER), numpy.arange(rows.start, rows.stop))
                transfer(dataset, columns, rows, block, True)
                copy_in_memory(memory, chunk, columns, rows, block, True)
            if not (dataset[:, 77] == numpy.arange(ORDER) * float(ORDER) + 77).all():
                sys.exit("the file does not hold what was written")
            runs += [{"run_name": name, "share": share(dataset, memory, chunk, kind, write)}
                     for name, (kind, write, its_chunk) in names.items() if its_chunk == chunk]
    json.dump({"context": {"h5py": h5py.__version__, "numpy": numpy.__version__}, "benchmarks": runs}, sys.stdout, indent=1)


if __name__ == "__main__":
    main()
