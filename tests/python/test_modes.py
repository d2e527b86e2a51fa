"""Natural modes through the package, against the references beside the data."""

import numpy as np
import pytest
from conftest import DATA

import kvo


def pair(stiffness, mass):
    return kvo.read(DATA / f"bcsstk{stiffness}.mtx"), kvo.read(DATA / f"bcsstm{mass}.mtx")


def test_modes_are_those_of_the_references():
    reference = np.loadtxt(DATA / "reference" / "orecar.txt")[:, 1]
    k, m = pair("11", "12")
    with kvo.open("a.sim", "x") as db:
        db["stiffness"], db["mass"] = k, m
        seen = []
        found = kvo.modes(db["stiffness"], db["mass"], count=6, progress=lambda share, doing: seen.append(doing))
        db["modes"] = found.modes
    np.testing.assert_allclose(found.frequencies, reference[:6], rtol=1e-8)
    assert found.account["certified"] and found.residuals.max() < 1e-10 and len(found) == 6
    assert any("searching" in doing for doing in seen)
    with kvo.open("a.sim") as db:
        x = db["modes"][...]
    np.testing.assert_allclose(x.T @ (m @ x), np.eye(6), atol=1e-9)
    np.testing.assert_allclose((k @ x - m @ x * found.eigenvalues) / abs(k).max(), 0, atol=1e-8)
    between = kvo.modes(k, m, interval=(reference[1] * 0.999, reference[3] * 1.001))
    np.testing.assert_allclose(between.frequencies, reference[1:4], rtol=1e-8)
    assert "4" in repr(found) and "<table>" in found._repr_html_()


def test_rounding_is_no_asymmetry_and_the_rest_is_refused():
    k, m = pair("01", "01")
    exact = kvo.modes(k, m, 3).eigenvalues
    rounded = k.copy()
    rounded.data *= (1 + 1e-14 * np.arange(k.nnz) / k.nnz)
    np.testing.assert_allclose(kvo.modes(rounded, m, 3).eigenvalues, exact, rtol=1e-9)
    skew = k.copy()
    skew.data[1] += 1e6
    for call in (lambda: kvo.modes(skew, m), lambda: kvo.modes(k, m[:5, :5]), lambda: kvo.modes(k[:5], m), lambda: kvo.modes(k, m, 0),
                 lambda: kvo.modes(k, m, interval=(2, 1))):
        with pytest.raises(ValueError):
            call()
    with pytest.raises(kvo.ModesError) as caught:
        kvo.modes(k, -m)
    assert (caught.value.number, caught.value.kind) == (600, "pair")

    def stop(share, doing):
        raise LookupError(doing)

    with pytest.raises(LookupError):
        kvo.modes(k, m, progress=stop)
