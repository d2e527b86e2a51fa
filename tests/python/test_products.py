"""Products with stored operands: those of numpy."""

import numpy as np
import pytest
import scipy.sparse as sp

import kvo
from kvo import _products


@pytest.mark.parametrize("limit", [None, 40_000])
def test_every_pair_of_operands(monkeypatch, limit):
    monkeypatch.setattr(_products, "_FIRST_FLOPS", 1e4)  # many pieces
    monkeypatch.setattr(_products, "_SECONDS", 1e-5)
    random = np.random.default_rng(3)
    a, b = random.random((130, 70)), random.random((70, 60))
    s = sp.random(70, 70, 0.2, "csr", random_state=1)
    s = sp.csr_array(s + s.T)
    v = random.random(70)
    with kvo.open("a.sim", "x") as db:
        x, y, k = db.create(data=a, chunks=(16, 24)), db.create(data=b, chunks=(8, 60)), db.create("mass", data=s)
        w = db.create(data=v)

        def expect(product, wanted, kind):
            assert type(product) is kind and product.shape == wanted.shape
            np.testing.assert_allclose(np.asarray(product), wanted, rtol=1e-12, atol=1e-12)

        with kvo.memory_limit(limit or 1 << 40):
            stored, array = kvo.Matrix, np.ndarray
            expect(x @ y, a @ b, stored)
            expect(y.T @ x.T, b.T @ a.T, stored)
            expect(x.T @ x, a.T @ a, stored)
            expect(x @ x.T, a @ a.T, stored)
            expect(k @ y, s @ b, stored)
            expect(x @ k, a @ s, stored)
            expect(x.T[:, :3].T @ b, a[:3] @ b, array)
            expect(x @ b, a @ b, array)
            expect(x @ v, a @ v, array)
            expect(a @ y, a @ b, array)
            expect(v @ y, v @ b, array)
            expect(x @ w, a @ v, array)
            expect(x.T @ a[:, 2], a.T @ a[:, 2], array)
            expect(k @ b, s @ b, array)
            expect(v @ k, v @ s, array)
            expect(k @ w, s @ v, array)
            expect(kvo.HalfStorage(sp.triu(s, 1, "csr"), s.diagonal()) @ v, s @ v, array)
            out = db.create(shape=(130, 60))
            assert kvo.matmul(x, y, out) is out
            expect(out, a @ b, stored)
            assert (abs((k @ s) - s @ s)).max() < 1e-12
    for call in (lambda: x @ x, lambda: x @ np.ones(3), lambda: kvo.matmul(x, y, x), lambda: x @ 3.0):
        with pytest.raises(ValueError):
            call()
    with kvo.open("a.sim", "r+") as db, pytest.raises(TypeError):
        db.create(data=np.ones((2, 2), np.int32)) @ np.ones((2, 2))


def test_a_product_tells_how_far_it_is(monkeypatch):
    monkeypatch.setattr(_products, "_FIRST_FLOPS", 1e3)
    seen = []
    with kvo.open("a.sim", "x") as db:
        x = db.create(data=np.ones((100, 100)), chunks=(10, 100))
        kvo.matmul(x, x, progress=lambda share, doing: seen.append((share, doing)))
        assert len(seen) > 1 and seen == sorted(seen) and seen[-1] == (1.0, "multiplying")

        def stop(share, doing):
            raise StopIteration

        with pytest.raises(StopIteration):
            kvo.matmul(x, x, progress=stop)
        x.read(progress=True)
