"""A matrix that is filled and multiplied piece by piece, within a stated memory: out_of_core.py DATABASE."""

import sys

import numpy as np

import kvo

rows, columns, step = 4000, 300, 500
random = np.random.default_rng(1)
with kvo.open(sys.argv[1], "w") as db, kvo.memory_limit(32 << 20):
    snapshots = db.create("snapshots", shape=(rows, columns), chunks=(1000, 100), unit="m", description="displacements over time")
    with db.transaction():  # the matrix below is kept with all of its values, or not at all
        mean = db.create("mean", shape=rows)
        for first in range(0, rows, step):
            part = random.random((step, columns))
            snapshots[first : first + step] = part
            mean[first : first + step] = part.mean(axis=1)
    gram = np.asarray(snapshots.T @ snapshots)
    values, vectors = np.linalg.eigh(gram)
    basis = kvo.matmul(snapshots, vectors[:, -5:] / np.sqrt(values[-5:]), progress=True)
    assert np.allclose(basis.T @ basis, np.eye(5))
    print(f"the five directions hold {values[-5:].sum() / values.sum():.1%} of the displacements")
