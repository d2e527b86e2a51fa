"""Ranges of dense matrices: what h5py makes of the same brackets."""

import h5py
import numpy as np
import pytest

import kvo
from kvo import _core, _transfer

DTYPES = ["f8", "f4", "i4", "u4", "i1", "u1"]


def random_key(random, extent):
    """An index of one axis as h5py takes it."""
    a, b = (int(n) for n in random.integers(-extent - 2, extent + 3, 2))
    choices = [
        slice(None),
        slice(a, b),
        slice(a, b, int(random.integers(1, 5))),
        int(random.integers(-extent, extent)) if extent else slice(0, 0),
        slice(3, 3),
        sorted(random.choice(extent, int(random.integers(1, extent + 1)), replace=False).tolist()) if extent else [],
        random.random(extent) < 0.5,
    ]
    return choices[int(random.integers(len(choices)))]


def is_list(key):
    return isinstance(key, (list, np.ndarray))


@pytest.mark.parametrize("seed", range(6))
def test_brackets_give_and_take_what_h5py_does(tmp_path, monkeypatch, seed):
    random = np.random.default_rng(seed)
    if seed % 2:  # all by the package itself, in small pieces, and no reading across gaps: the same values
        monkeypatch.setattr(_core.Dense, "get", lambda *_: None)
        monkeypatch.setattr(_core.Dense, "put", lambda *_: False)
        monkeypatch.setattr(_transfer, "_PIECE", 96)
        monkeypatch.setattr(_transfer, "_ASIDE", 64)
        monkeypatch.setattr(_transfer, "_GAP", 9)
        monkeypatch.setattr(_transfer, "_GAP_IN_COLUMN", 0)
    for case in range(12):
        rank = int(random.integers(1, 4))
        shape = tuple(int(n) for n in random.integers(1, 14, rank))
        chunks = random.choice([False, True]) and tuple(int(n) for n in random.integers(1, 9, rank))
        values = random.integers(0, 100, shape).astype(DTYPES[case % 6])
        path = tmp_path / f"{case}.sim"
        with kvo.open(path, "x") as db:
            db.create(data=values, chunks=chunks)
        with kvo.open(path, "r+") as db, h5py.File("oracle.h5", "w") as oracle:
            ours, theirs = db[0], oracle.create_dataset("x", data=values)
            assert (ours.shape, ours.dtype, ours.chunks) == (values.shape, values.dtype, chunks or None)
            for _ in range(20):
                key = tuple(random_key(random, n) for n in shape[: int(random.integers(1, rank + 1))])
                if sum(map(is_list, key)) > 1:
                    with pytest.raises(TypeError):
                        ours[key]
                    continue
                expected = theirs[key]
                np.testing.assert_array_equal(ours[key], expected)
                assert np.shape(ours[key]) == expected.shape
                new = random.integers(0, 100, expected.shape).astype(values.dtype)
                ours[key] = new if random.random() < 0.7 else 7
                check = np.array(values)
                check[...] = theirs[...]
                if not any(n == 0 for n in expected.shape):
                    one = [np.arange(n)[k] for k, n in zip(key, shape)] + [np.arange(n) for n in shape[len(key) :]]
                    check[np.ix_(*[np.atleast_1d(index) for index in one])] = ours[key].reshape([np.size(index) for index in one])
                theirs[...] = check
                np.testing.assert_array_equal(ours[...], check)
        with h5py.File(path) as file:  # another program sees the same
            np.testing.assert_array_equal(file["context_0/distribution_0_drawer_0"][...].T, check)


def test_lists_may_stand_in_any_order_and_the_transpose_is_lazy():
    values = np.arange(300.0).reshape(20, 15)
    with kvo.open("a.sim", "x") as db:
        x = db.create(data=values, chunks=(6, 4))
        np.testing.assert_array_equal(x[[7, 3, 3, -1]], values[[7, 3, 3, -1]])
        np.testing.assert_array_equal(x.T[2:9, 4], values.T[2:9, 4])
        np.testing.assert_array_equal(np.asarray(x.T), values.T)
        assert x[:, 2:5].flags.f_contiguous and x.T[...].flags.c_contiguous
        x[[5, 2]] = x.T[:, [0, 1]].T
        x.T[0] = 3
        expected = values.copy()
        expected[[5, 2]] = values[[0, 1]]
        expected[:, 0] = 3
        np.testing.assert_array_equal(x, expected)
        out = np.zeros((4, 15), order="F")
        assert x.read(slice(4), out=out) is out
        np.testing.assert_array_equal(out, expected[:4])
        x.resize(25)
        x.resize(17, axis=1)
        np.testing.assert_array_equal(db[0], np.pad(expected, ((0, 5), (0, 2))))


@pytest.mark.parametrize(
    "key, error",
    [
        ((0, 0, 0), IndexError),
        (99, IndexError),
        ([0, 99], IndexError),
        (slice(None, None, -1), ValueError),
        ("x", TypeError),
        (1.5, TypeError),
        (True, TypeError),
        (np.ones(3, bool), IndexError),
        ((Ellipsis, Ellipsis), IndexError),
    ],
)
def test_wrong_brackets_are_refused(key, error):
    with kvo.open("a.sim", "x") as db:
        x = db.create(shape=(4, 5))
        with pytest.raises(error):
            x[key]
        with pytest.raises(error):
            x[key] = 0
        with pytest.raises(ValueError):
            x[:2] = np.zeros((3, 5))
