#!/usr/bin/env python3
"""kvomtx modes, the whole program from Matrix Market files to its database, beside what engineers use else: SLEPc's Krylov-Schur with MUMPS
(slepc4py), and eigsh of SciPy. The peers find the matrices in memory and write nothing, which is to their advantage, and count nothing.

    OPENBLAS_NUM_THREADS=1 python3 benchmarks/modes/modes_bench.py [--kvomtx PROGRAM] [--benchmark_filter=REGEX]

PROGRAM is build/bench/tools/kvomtx unless it is given, here or as KVOMTX in the environment. Another KVOMTX_BEFORE is a peer, too. Prints JSON
as Google Benchmark does, for scripts/measure.sh. Peers that are not installed are left out.
"""

import argparse
import importlib.util
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

BRICKS = {98304: (32, 31, 31), 24000: (20, 19, 19), 1536: (8, 7, 7)}
TOLERANCE = 1e-10
LIMIT = 600  # MB, of the case with limited memory

# name: unknowns, modes, options of kvomtx, peers; "self" is kvomtx without the options, "fewer" with 20 modes
CASES = {
    "Modes/98304/20": (98304, 20, [], ["before", "slepc"]),
    "Uncounted/98304/20": (98304, 20, ["--no-count"], ["before", "slepc"]),
    "Limited/98304/20": (98304, 20, ["--memory", f"{LIMIT}M"], ["self"]),
    "Modes/98304/100": (98304, 100, [], ["fewer"]),
    "Modes/24000/20": (24000, 20, [], ["before", "slepc", "eigsh"]),
    "Modes/1536/20": (1536, 20, [], ["slepc", "eigsh"]),  # for a test: what it takes to start is most of it
}


def run(command, **options):
    """Seconds, peak of resident memory in MiB, and standard output of a program that must succeed."""
    begin = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True, **options)
    text = process.stdout.read()
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        raise RuntimeError(f"{' '.join(command)}: status {status}")
    return time.perf_counter() - begin, usage.ru_maxrss / 1024, text


class Models:
    """The pairs, made when they are asked for."""

    def __init__(self, kvomtx, folder):
        self.kvomtx, self.folder = kvomtx, pathlib.Path(folder)

    def files(self, unknowns):
        files = [str(self.folder / f"{name}{unknowns}.mtx") for name in "km"]
        if not os.path.exists(files[0]):
            run([self.kvomtx, "make-brick", *map(str, BRICKS[unknowns]), *files])
        return files

    def arrays(self, unknowns):
        import scipy.io
        import scipy.sparse

        arrays = [file.replace(".mtx", ".npz") for file in self.files(unknowns)]
        for array, file in zip(arrays, self.files(unknowns)):
            if not os.path.exists(array):
                scipy.sparse.save_npz(array, scipy.sparse.csr_matrix(scipy.io.mmread(file)), compressed=False)
        return arrays

    def modes(self, program, unknowns, count, options):
        output = str(self.folder / "modes.sim")
        seconds, peak, text = run([program, "modes", *self.files(unknowns), "--count", str(count), "-o", output, "--json", *options])
        os.remove(output)
        return seconds, peak, json.loads(text)["eigenvalues"]

    def peer(self, name, unknowns, count):
        _, peak, text = run([sys.executable, __file__, "--peer", name, *self.arrays(unknowns), str(count)])
        answer = json.loads(text)
        return answer["seconds"], peak, answer["eigenvalues"]


def slepc(k, m, count):
    import slepc4py

    slepc4py.init([])
    from petsc4py import PETSc
    from slepc4py import SLEPc

    def matrix(a):
        result = PETSc.Mat().createAIJ(a.shape, csr=(a.indptr.astype(PETSc.IntType), a.indices.astype(PETSc.IntType), a.data))
        result.setOption(PETSc.Mat.Option.SYMMETRIC, True)
        result.setOption(PETSc.Mat.Option.SPD, True)
        return result

    solver = SLEPc.EPS().create()
    solver.setOperators(matrix(k), matrix(m))
    solver.setProblemType(SLEPc.EPS.ProblemType.GHEP)
    solver.setType(SLEPc.EPS.Type.KRYLOVSCHUR)
    solver.setDimensions(count)
    solver.setTolerances(TOLERANCE)
    solver.setTarget(0.0)
    solver.setWhichEigenpairs(SLEPc.EPS.Which.TARGET_MAGNITUDE)
    transformation = solver.getST()
    transformation.setType(SLEPc.ST.Type.SINVERT)
    factor = transformation.getKSP()
    factor.setType(PETSc.KSP.Type.PREONLY)
    factor.getPC().setType(PETSc.PC.Type.CHOLESKY)
    factor.getPC().setFactorSolverType("mumps")
    solver.solve()
    vector = solver.getOperators()[0].createVecRight()
    values = []
    for i in range(min(count, solver.getConverged())):
        values.append(solver.getEigenpair(i, vector).real)
    return values


def eigsh(k, m, count):
    import scipy.sparse.linalg

    return scipy.sparse.linalg.eigsh(k.tocsc(), count, m.tocsc(), sigma=0.0, tol=TOLERANCE, return_eigenvectors=True)[0]


def answer_as_peer(name, files, count):
    import scipy.sparse

    k, m = (scipy.sparse.load_npz(file) for file in files)
    begin = time.perf_counter()
    values = {"slepc": slepc, "eigsh": eigsh}[name](k, m, int(count))
    json.dump({"seconds": time.perf_counter() - begin, "eigenvalues": sorted(values)}, sys.stdout)


def is_installed(peer):
    modules = {"slepc": ("scipy", "petsc4py", "slepc4py"), "eigsh": ("scipy",)}.get(peer, ())
    if peer == "before":
        return "KVOMTX_BEFORE" in os.environ
    return all(importlib.util.find_spec(module) for module in modules)


def measure(models, unknowns, count, options, peers):
    seconds, peak, values = models.modes(models.kvomtx, unknowns, count, options)
    counters = {"seconds": seconds, "peak_MB": peak * 1.048576}
    for peer in peers:
        if not is_installed(peer):
            counters[f"{peer}_ratio"] = None
            continue
        if peer in ("self", "fewer", "before"):
            program = os.environ["KVOMTX_BEFORE"] if peer == "before" else models.kvomtx
            answer = models.modes(program, unknowns, 20 if peer == "fewer" else count, [])
        else:
            answer = models.peer(peer, unknowns, count)
        common = min(len(values), len(answer[2]))
        assert common >= 20, f"{peer}: only {common} modes"
        assert all(abs(a - b) <= 1e-8 * abs(b) for a, b in zip(values[:20], answer[2])), f"{peer}: other eigenvalues"
        counters |= {f"{peer}_ratio": seconds / answer[0], f"{peer}_seconds": answer[0], f"{peer}_peak_MB": answer[1] * 1.048576}
    return counters


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kvomtx", default=os.environ.get("KVOMTX"))
    parser.add_argument("--peer", nargs=4)
    parser.add_argument("--benchmark_filter", default="")
    parser.add_argument("--benchmark_list_tests", action="store_true")
    arguments, _ = parser.parse_known_args()
    if arguments.peer:
        answer_as_peer(arguments.peer[0], arguments.peer[1:3], arguments.peer[3])
        return
    if arguments.benchmark_list_tests:
        print("\n".join(CASES))
        return
    kvomtx = arguments.kvomtx or str(pathlib.Path(__file__).resolve().parent.parent.parent / "build/bench/tools/kvomtx")
    if not os.path.exists(kvomtx):
        print(f"{kvomtx} was not built", file=sys.stderr)
        sys.exit(77)  # as tests say that they were skipped
    with tempfile.TemporaryDirectory() as folder:
        models = Models(kvomtx, folder)
        runs = [{"run_name": name, **measure(models, *case)} for name, case in CASES.items() if re.search(arguments.benchmark_filter, name)]
    json.dump({"benchmarks": runs}, sys.stdout, indent=1)


if __name__ == "__main__":
    main()
