"""The lowest modes of a model from two matrix files into a database, and back: modes_of_a_model.py K M DATABASE."""

import sys

import numpy as np

import kvo

stiffness, mass, path = sys.argv[1:4]
k, m = kvo.read(stiffness), kvo.read(mass)
found = kvo.modes(k, m, count=8)
print(found)
with kvo.open(path, "w") as db:  # takes the place of a file of that name when all of it is there
    db.create("stiffness", data=k)
    db.create("mass", data=m)
    db.create("modes", data=found.modes)
    db.create("eigenvalues", data=found.eigenvalues, unit="rad^2/s^2")

with kvo.open(path) as db:
    print(db)
    x, k, m = db["modes"], db["stiffness"], db["mass"]
    # Out of core: products of stored operands are matrices on scratch files.
    generalized = x.T @ (k @ x)
    off = np.asarray(generalized) - np.diag(db["eigenvalues"])
    assert abs(off).max() < 1e-6 * db["eigenvalues"][-1], off
    assert np.allclose(np.asarray(x.T @ (m @ x)), np.eye(len(found)))
    # How much of each mode lies in the first node's unknowns, without reading the rest.
    print(np.abs(x[:6]).max(axis=0))
