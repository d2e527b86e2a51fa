"""Reads what write_sim_file wrote, in the working folder as model.sim: first the lines of a page do, then h5py alone. Or writes blocks with
the lines of the page that do.

read_sim_file.py PATH/database-format.md [write]
"""

import re
import sys

import h5py
import numpy as np

page = open(sys.argv[1], encoding="utf-8").read()
read = {}
writes = sys.argv[2:] == ["write"]
for lines in re.findall(r"^```python\n(.*?)^```", page, re.DOTALL | re.MULTILINE):
    if ("os.pwrite" in lines) == writes:
        exec(lines, read)
if writes:
    sys.exit()

expected = np.zeros((5, 3))
expected[:4] = np.arange(1.0, 13.0).reshape(3, 4).T
assert read["matrix"].dtype == np.float64 and (read["matrix"] == expected).all()

assert (read["displacements"] == expected).all() and read["unit"] == "\u00b5m"

expected = np.zeros((4, 3))
expected[0, 0], expected[0, 1], expected[2, 1] = 0.5, 0.25, -1.0
assert read["A"].shape == (4, 3) and (read["A"].toarray() == expected).all()

expected = np.diag([10.0, 20.0, 30.0, 40.0])
for i, j, value in (0, 1, 0.5), (0, 2, 0.25), (2, 3, -1.0):
    expected[i, j] = expected[j, i] = value
assert (read["K"].toarray() == expected).all()

with h5py.File("model.sim", "r") as file:
    assert file.attrs["format"] == b"KVOSim" and file.attrs["format_version"] == 2 and file.attrs["contexts"] == 1
    context = file["context_0"]
    assert file["displacements"].attrs["rows"] == 5 and file["displacements"].attrs["columns"] == 3
    members = read["members"]
    assert members(context, 0, 0).tolist() == [0, 1, 2] and members(context, 0, 1).tolist() == [100, 300, 200, 400, 500]
    assert members(context, 4, 1).tolist() == [0, 1, 2, 3]
    grids = context["grids"][...]
    assert grids["color"][grids["distribution"] == 4].tolist() == [0, 1]

    # Chunks that were never written: the initialization value, whichever way they are read, also over a buffer that is not clean.
    partial = context["distribution_1_drawer_0"]
    assert partial.chunks == (1, 2) and partial.fillvalue == 7.5
    expected = np.full((3, 4), 7.5)
    expected[1, 2] = -2.0
    assert (partial[...] == expected).all()
    target = np.full((1, 4), 123.0)
    partial.read_direct(target, np.s_[2:3, :])
    assert (target == 7.5).all()

    assert (context["distribution_5_drawer_0"][...].T == np.arange(35.0).reshape(5, 7)).all()  # written by the page

    assert context["distribution_2_drawer_0"].chunks is None
    assert context["distribution_2_drawer_0"][...].tolist() == [1, 2, 3, 4]
print("read_sim_file: all values are right")
