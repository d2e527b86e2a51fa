"""Matrix files of other programs: what scipy and h5py make of them, and where malformed ones are refused."""

import gzip
import zipfile

import h5py
import numpy as np
import pytest
import scipy.io
import scipy.sparse as sp

import kvo

RANDOM = np.random.default_rng(3)


def random_matrix(m, n, seed=1):
    matrix = sp.random(m, n, 0.15, "csr", random_state=seed)
    matrix.data = (matrix.data - 0.5) * 10.0 ** RANDOM.integers(-20, 20, matrix.nnz)
    return matrix


def assert_read(path, expected, **arguments):
    found = kvo.read(path, **arguments)
    np.testing.assert_array_equal(found.toarray(), expected.toarray() if sp.issparse(expected) else expected)


def assert_refused(path, place, words):
    with pytest.raises(kvo.MalformedFileError) as caught:
        kvo.read(path)
    assert words in caught.value.expected and caught.value.place == place, str(caught.value)


def test_matrix_market_as_scipy_writes_it():
    matrix = random_matrix(30, 30)
    skew = sp.coo_array(matrix - matrix.T)
    for field, symmetry, content in [("real", "general", matrix), ("real", "symmetric", matrix + matrix.T), ("real", "skew-symmetric", skew),
                                     ("integer", "general", (matrix != 0).astype(np.int64) * 7), ("pattern", "general", matrix)]:
        scipy.io.mmwrite("a.mtx", sp.coo_matrix(content), field=field, symmetry=symmetry, precision=17)
        with open("a.mtx", "rb") as plain, gzip.open("anything", "wb") as packed:
            packed.write(plain.read())
        for path in ("a.mtx", "anything"):
            assert_read(path, scipy.io.mmread("a.mtx"))


def fields(numbers, per_line, text):
    lines = [numbers[k : k + per_line] for k in range(0, len(numbers), per_line)]
    return "".join("".join(map(text, line)) + "\n" for line in lines)


def boeing(kind, matrix, rhs="", rutherford=False, values="(1P,3D26.16)", text=lambda v: f"{v:26.16E}".replace("E", "D"), tail=""):
    """The text of a file of a csc matrix."""
    numbers = [part for v in matrix.data for part in ([v.real, v.imag] if kind[0] in "Cc" else [v])]
    counts = [9, 1, 1, 0 if kind[0] in "Pp" else 1] + ([] if rutherford else [len(rhs)])
    head = f"{'A title (16I5)':72}{'KEY':8}\n" + "".join(f"{c:14}" for c in counts) + f"\n{kind:14}"
    head += "".join(f"{c:14}" for c in (*matrix.shape, matrix.nnz, 0)) + f"\n{'(16I5)':16}{'(10I8)':16}{values:20}{'(5E16.8)':20}\n"
    head += f"{'F':14}{1:14}{matrix.shape[0]:14}\n" if rhs else ""
    body = fields([p + 1 for p in matrix.indptr], 16, lambda v: f"{v:5}") + fields([i + 1 for i in matrix.indices], 10, lambda v: f"{v:8}")
    return head + body + ("" if kind[0] in "Pp" else fields(numbers, 3, text)) + rhs + tail


def test_harwell_boeing_and_rutherford_boeing(tmp_path):
    path = tmp_path / "a.rua"
    for seed in range(3):
        matrix = sp.csc_matrix(random_matrix(40, 40, seed))
        scipy.io.hb_write(path, matrix)
        assert_read(path, scipy.io.hb_read(path))
    matrix, square = sp.csc_matrix(random_matrix(9, 23)), random_matrix(25, 25)
    symmetric, skew = sp.csc_matrix(square + square.T), sp.csc_matrix(square - square.T)
    ones = matrix.copy()
    ones.data[:] = 1
    for kind, stored, whole in [("RRA", matrix, matrix), ("rua", matrix, matrix), ("PRA", matrix, ones), ("RSA", sp.tril(symmetric), symmetric),
                                ("rsa", sp.triu(symmetric), symmetric), ("RZA", sp.tril(skew), skew)]:
        for rhs, rutherford in [("", False), ("", True), ("  1.0 2.0\n", False)]:
            path.write_text(boeing(kind, sp.csc_matrix(stored), rhs, rutherford))
            assert_read(path, whole)
    path.write_bytes(gzip.compress(boeing("rsa", sp.csc_matrix(sp.tril(symmetric))).encode()))
    assert_read(path, symmetric)
    path.write_text(boeing("ira", matrix, values="(3I26)", text=lambda v: f"{int(v * 1e-3):26}"))
    assert_read(path, np.trunc(matrix.toarray() * 1e-3))
    small = sp.csc_matrix([[-2.5e-105, 0], [1.25e100, 3]])  # Fortran leaves out the letter there
    path.write_text(boeing("rua", small, values="(3E26.16)", text=lambda v: f"{v:26.16E}".replace("E-1", "-1").replace("E+1", "+1")))
    assert_read(path, small)


def test_harwell_boeing_that_is_malformed(tmp_path):
    path = tmp_path / "bad"
    matrix = sp.csc_matrix(np.array([[1.0, 0, 2], [0, 3, 0], [4, 0, 5]]))
    good = boeing("RUA", matrix)
    for old, new, place, words in [
        ("RUA ", "RUE ", "line 3", "in elements"), ("RUA ", "CUA ", "line 3", "complex"), ("RUA ", "RSA ", "line 6", "one triangle only"),
        ("(16I5)          (10I8)", "(16F5.1)        (10I8)", "line 4", "(16F5.1)"), ("(1P,3D26.16)", "(1P,D26.16,I3)", "line 4", "(5E16.8)"),
        ("(1P,3D26.16)", "(3X)        ", "line 4", "(5E16.8)"), ("    1    3    4    6\n", "    1    4    3    6\n", "line 5", "from 4 to 6"),
        ("    1    3    4    6\n", "    1    3    4    5\n", "line 5", "from 6 to 6"), ("    1    3    4    6\n", "    1    3\n", "line 5", "a pointer"),
        ("       1       3", "       1       4", "line 6", "a row from 1 to 3"), ("4.0000000000000000D+00", "4.00000000000000x0D+00", "line 7", "a value"),
        ("4.0000000000000000D+00", "    40000000000000D+00", "line 7", "with a point"), ("4.0000000000000000D+00", "4.0000000000000000    ", "line 7", "an exponent"),
    ]:
        assert old in good
        path.write_text(good.replace(old, new, 1))
        assert_refused(path, place, words)
    path.write_text(good + "more\n")
    assert_refused(path, "line 9", "the end of the file")
    path.write_text(good[: good.rindex("\n", 0, -1) + 1])
    assert_refused(path, "line 7", "the file ends here")
    path.write_text(boeing("RUA", matrix).replace(f"{5:14}", f"{2147483647:14}", 1))  # more entries than there are
    assert_refused(path, "line 8", "the file ends here")


def test_scipy_archives_and_numpy_arrays():
    matrix = random_matrix(36, 24)
    unsorted = sp.csr_matrix((np.array([1.0, 2, 3, 4]), np.array([2, 0, 2, 1]), np.array([0, 3, 4, 4])), (3, 4))  # and a place twice
    for kind in (sp.csr_matrix, sp.csc_matrix, sp.coo_matrix, sp.dia_matrix, lambda m: sp.bsr_matrix(m, blocksize=(3, 2)), sp.csr_array):
        for content in (matrix, matrix.astype(np.float32), (matrix != 0), matrix.astype(np.int64), sp.csr_matrix((36, 24))):
            for compressed in (True, False):
                sp.save_npz("a.npz", kind(content), compressed)
                assert_read("a.npz", content.astype(float))
    sp.save_npz("a.npz", unsorted)
    assert_read("a.npz", unsorted)
    for dense in (matrix.toarray(), np.asfortranarray(matrix.toarray()), matrix.toarray().astype(">f8"), np.arange(12, dtype=np.uint8).reshape(3, 4)):
        np.save("a.npy", dense)
        assert_read("a.npy", dense.astype(float))
    np.save("a.npy", np.array([1.5, 0, np.nan]))
    assert_read("a.npy", np.array([[1.5], [0], [np.nan]]))
    np.save("a.npy", np.ones((2, 2), complex))
    assert_refused("a.npy", "byte 128", "a complex matrix cannot be held")
    np.save("a.npy", np.ones((2, 2, 2)))
    assert_refused("a.npy", "byte 128", "one or two dimensions")
    np.save("a.npy", np.ones((2, 2)))
    with open("a.npy", "r+b") as file:
        file.truncate(128 + 24)
    assert_refused("a.npy", "byte 152", "the array ends here")


def test_archives_that_are_malformed():
    good = {"format": np.array(b"csr"), "shape": np.array([2, 3]), "data": np.ones(3), "indices": np.array([0, 2, 1]), "indptr": np.array([0, 2, 3])}
    for change, place, words in [
        ({"indices": np.array([0, 3, 1])}, "byte 144", "indices.npy: expected an index from 0 to 2, found 3"),
        ({"indices": np.array([0, -1, 1])}, "byte 144", "from 0 to 2, found -1"), ({"indptr": np.array([0, 4, 3])}, "byte 144", "a pointer from 0 to 3"),
        ({"indptr": np.array([0, 2, 2])}, "byte 152", "a pointer from 3 to 3"), ({"indptr": np.array([1, 2, 3])}, "byte 136", "the first pointer"),
        ({"indptr": np.array([0, 3])}, "byte 128", "an array of 3 numbers"), ({"data": np.ones(2)}, "byte 128", "an array of 2 numbers"),
        ({"shape": np.array([2, 3, 4])}, "byte 128", "the number of rows"), ({"shape": np.array([2, 2**31])}, "byte 144", "from 0 to 2147483646"),
        ({"format": np.array(b"lil")}, "byte 0", '"lil"'), ({"data": np.array(["a", "b", "c"])}, "byte 128", "found texts"),
        ({"data": np.ones(3, np.longdouble)}, "byte 128", "4 or 8 bytes"), ({"indices": np.ones(3)}, "byte 128", "not of whole numbers"),
    ]:
        np.savez("bad.npz", **{**good, **change})
        assert_refused("bad.npz", place, words)
    np.savez("bad.npz", a=np.ones(3))
    assert_refused("bad.npz", "byte 0", "scipy.sparse.save_npz")
    np.savez("bad.npz", **{name: array for name, array in good.items() if name != "indptr"})
    assert_refused("bad.npz", "byte 0", "indptr.npy")
    np.savez_compressed("bad.npz", **{**good, "data": np.arange(3.0)})
    content = bytearray(open("bad.npz", "rb").read())
    with zipfile.ZipFile("bad.npz") as archive:
        begin = archive.getinfo("data.npy").header_offset
    content[begin + 80] ^= 0x40
    open("bad.npz", "wb").write(content)
    with pytest.raises(kvo.MalformedFileError):
        kvo.read("bad.npz")
    open("bad.npz", "wb").write(content[:-30])
    assert_refused("bad.npz", "byte 0", "the archive cannot be read")


def matlab_file(path, variables):
    with h5py.File(path, "w", userblock_size=512) as file:
        for name, content in variables.items():
            if sp.issparse(content):
                csc = sp.csc_matrix(content)
                group = file.create_group(name)
                group.attrs["MATLAB_class"] = np.bytes_("logical" if csc.dtype == bool else "double")
                group.attrs["MATLAB_sparse"] = np.uint64(csc.shape[0])
                group["jc"] = csc.indptr.astype(np.uint64)
                if csc.nnz:
                    group.create_dataset("ir", data=csc.indices.astype(np.uint64), chunks=(7,), compression="gzip")
                    values = csc.data.astype(np.uint8) if csc.dtype == bool else csc.data
                    group["data"] = parts(values)
            else:
                data = parts(np.asarray(content).T)
                chunks = (2, 3) if min(data.shape) > 3 else None
                set_ = file.create_dataset(name, data=data, chunks=chunks, compression="gzip" if chunks else None)
                set_.attrs["MATLAB_class"] = np.bytes_(content.dtype.name.replace("float64", "double").replace("complex128", "double").replace("uint16", "char"))
    with open(path, "r+b") as file:
        file.write(b"MATLAB 7.3 MAT-file, Platform: GLNXA64".ljust(124) + b"\x00\x02IM")


def parts(values):
    if values.dtype.kind != "c":
        return values
    pairs = np.empty(values.shape, [("real", "f8"), ("imag", "f8")])
    pairs["real"], pairs["imag"] = values.real, values.imag
    return pairs


def test_matlab_files():
    matrix = random_matrix(30, 17)
    dense = RANDOM.random((11, 5))
    text = np.frombuffer("text".encode("utf-16-le"), np.uint16).reshape(1, 4)
    matlab_file("a.mat", {"K": matrix, "D": dense, "mask": matrix != 0, "none": sp.csc_matrix((4, 3)), "c": dense + 1j, "word": text})
    for name, expected in {"K": matrix, "D": dense, "mask": (matrix != 0).astype(float), "none": np.zeros((4, 3))}.items():
        assert_read(f"a.mat:{name}", expected)
    assert_refused("a.mat", "byte 512", "several matrices are here; name one of D, K, c, mask, none")
    assert_refused("a.mat:word", "byte 512", 'there is no matrix "word"')
    assert_refused("a.mat:c", "byte 512", "a complex matrix cannot be held")
    matlab_file("one", {"K": matrix, "word": text})
    assert_read("one", matrix)
    scipy.io.savemat("old.mat", {"K": matrix})
    assert_refused("old.mat", "byte 0", "level 5; save it from MATLAB with the option -v7.3")
    for array, values, words in [("jc", np.r_[np.zeros(17), 5], "up to"), ("jc", np.r_[0, 9, 3, np.full(15, matrix.nnz)], "found 3 behind column 2"),
                                 ("ir", np.full(matrix.nnz, 30), "a row from 0 to 29 in entry 1, found 30")]:
        matlab_file("bad.mat", {"K": matrix})
        with h5py.File("bad.mat", "r+") as file:
            file["K"][array][...] = values.astype(np.uint64)
        assert_refused("bad.mat", "byte 512", words)
    with open("a.mat", "r+b") as file:
        file.truncate(3000)
    with pytest.raises(kvo.DatabaseError):
        kvo.read("a.mat:K")
