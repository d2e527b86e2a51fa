"""Reads what write_sim_file wrote, with h5py alone, the way docs/database-format.md shows: read_sim_file.py PATH"""

import sys

import h5py
import numpy as np


def drawer_sets(context, distribution, drawer=0):
    """The member numbers of each dimension of a drawer, in order."""
    rows = context["drawers"][...]
    rows = rows[(rows["distribution"] == distribution) & (rows["drawer"] == drawer)]
    grid = context["grids"][...]
    grid = grid[grid["distribution"] == distribution]
    collections = context["collections"][...]
    result = []
    for dimension in grid:
        index = rows["set"][rows["dimension"] == dimension["dimension"]][-1]  # the last row counts
        if index == 0:
            count = collections["members"][collections["index"] == dimension["collection"]][0]
            result.append(np.arange(count))
        else:
            sets = context["sets"][...]
            row = sets[sets["index"] == index][0]
            result.append(context["set_members"][row["first"] : row["first"] + row["count"]])
    return result


def sparse_to_dense(group, rows, columns):
    values, indices, start = group["values"][...], group["column_indices"][...], group["row_start"][...]
    dense = np.zeros((rows, columns))
    for row in range(rows):
        for k in range(start[row], start[row + 1]):
            dense[row, indices[k]] = values[k]
            if "diagonal" in group:
                dense[indices[k], row] = values[k]
    if "diagonal" in group:
        dense += np.diag(group["diagonal"][...])
    return dense


with h5py.File(sys.argv[1], "r") as file:
    assert file.attrs["format"] == b"KVOSim" and file.attrs["format_version"] == 1 and file.attrs["contexts"] == 1
    context = file["context_0"]
    columns, rows = drawer_sets(context, 0)
    assert columns.tolist() == [0, 1, 2] and rows.tolist() == [100, 300, 200, 400, 500]

    # [columns][rows] in the file: transposed it is the matrix.
    matrix = context["distribution_0_drawer_0"][...].T
    expected = np.zeros((5, 3))
    expected[:4] = np.arange(1.0, 13.0).reshape(3, 4).T
    assert matrix.dtype == np.float64 and (matrix == expected).all()

    # Chunks that were never written: the initialization value, whichever way they are read, also over a buffer that is not clean.
    partial = context["distribution_1_drawer_0"]
    assert partial.chunks == (1, 2) and partial.fillvalue == 7.5
    expected = np.full((3, 4), 7.5)
    expected[1, 2] = -2.0
    assert (partial[...] == expected).all()
    target = np.full((1, 4), 123.0)
    partial.read_direct(target, np.s_[2:3, :])
    assert (target == 7.5).all()

    assert context["distribution_2_drawer_0"].chunks is None
    assert context["distribution_2_drawer_0"][...].tolist() == [1, 2, 3, 4]

    expected = np.zeros((4, 3))
    expected[0, 1], expected[0, 2], expected[2, 2] = 0.5, 0.25, -1.0
    assert (sparse_to_dense(context["distribution_3_drawer_0"], 4, 3) == expected).all()
    full = np.diag([10.0, 20.0, 30.0, 40.0])
    full[0, 1] = full[1, 0] = 0.5
    full[0, 2] = full[2, 0] = 0.25
    full[2, 3] = full[3, 2] = -1.0
    symmetric = context["distribution_4_drawer_0"]
    dense = sparse_to_dense(symmetric, 4, 4)
    assert (dense == full).all()
    assert drawer_sets(context, 4)[1].tolist() == [0, 1, 2, 3]
    grids = context["grids"][...]
    assert grids["color"][grids["distribution"] == 4].tolist() == [0, 1]
print("read_sim_file: all values are right")
