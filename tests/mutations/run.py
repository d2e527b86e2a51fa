#!/usr/bin/env python3
"""Plants the faults of faults.txt into a copy of the sources, and tells which test catches each: see README.md."""
import argparse
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
PRODUCT = ("blac", "containers", "fortran", "include", "modes", "mtx", "platform", "tools")
# All faults are compiled into one build; the environment says which one is in force.
SWITCH = """#ifndef KVO_FAULT
#define KVO_FAULT
#include <stdlib.h>
static inline int kvoFault(int number)
{
    static int inForce = -1;
    if (inForce < 0) {
        char const* const wish = getenv("KVO_FAULT");
        inForce = wish != NULL ? atoi(wish) : 0;
    }
    return number == inForce;
}
#endif
#line 1
"""


class Fault:
    def __init__(self, number, file, line, folder, programs):
        self.number, self.file, self.folder, self.programs = number, file, folder, programs
        self.before, self.old, self.new, self.behind = line.split("@@")

    def __str__(self):
        return f"{self.file}: {self.before}@@{self.old}@@{self.new}@@{self.behind}"

    def plant(self, sources):
        paths = [path for path in sources if path.name == self.file]
        if len(paths) != 1:
            return f"{len(paths)} files of that name"
        text = paths[0].read_text()
        blank = lambda part: r"\s+".join(map(re.escape, part.split(" "))).replace(r"\s+\s+", r"\s+")
        found = list(re.finditer(f"({blank(self.before)})({blank(self.old)})(?={blank(self.behind)})", text))
        if len(found) != 1:
            return f"the line is there {len(found)} times"
        old = found[0].group(2)
        if old.endswith(";"):
            planted = f"if (kvoFault({self.number})) {{ {self.new} }} else {{ {old} }}"
        else:
            planted = f"(kvoFault({self.number}) ? ({self.new}) : ({old}))"
        begin, end = found[0].span(2)
        text = text[:begin] + planted + text[end:]
        paths[0].write_text(text if text.startswith(SWITCH) else SWITCH + text)
        return None


def read_table(path):
    faults, folder, programs = [], None, []
    for line in path.read_text().splitlines():
        if line.startswith("["):
            folder, names = line.strip("[]").split(":")
            programs = names.split()
        elif line and not line.startswith("#"):
            file, rest = line.split(": ", 1)
            faults.append(Fault(len(faults) + 1, file, rest, folder, programs))
    return faults


def prepare(source, tree, faults):
    """Copies what is tracked in `source` to `tree`, plants all faults and builds."""
    shutil.rmtree(tree / "src", ignore_errors=True)
    files = subprocess.run(["git", "-C", source, "ls-files"], check=True, capture_output=True, text=True).stdout
    for file in files.splitlines():
        (tree / "src" / file).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(source / file, tree / "src" / file)
    sources = [path for folder in PRODUCT for path in (tree / "src" / folder).rglob("*") if path.suffix in (".h", ".cpp")]
    wrong = [f"{fault}\n    {why}" for fault in faults if (why := fault.plant(sources))]
    if wrong:
        sys.exit("\n".join(wrong))


def build(tree, jobs):
    environment = dict(os.environ, KVO_WERROR="OFF")
    configure = ["--preset", "release", "-DKVO_BUILD_EXAMPLES=OFF", "-DCMAKE_CXX_FLAGS=-w"]
    for arguments in (configure, ["--build", "build/release", f"-j{jobs}"]):
        subprocess.run(["cmake", *arguments], check=True, cwd=tree / "src", env=environment, stdout=subprocess.DEVNULL)


def programs_of(tree, fault):
    """The test programs of the fault's folder, those that its section names first."""
    folder = tree / "src/build/release/tests" / fault.folder
    all_of_them = sorted(path for path in folder.rglob("*_test*") if path.is_file() and not path.suffix and os.access(path, os.X_OK))
    return sorted(all_of_them, key=lambda path: (fault.programs + [path.name]).index(path.name))


def run(program, number, limit, scratch):
    """What tells that the program has failed; None when it has passed."""
    shutil.rmtree(scratch, ignore_errors=True)
    scratch.mkdir()
    environment = dict(os.environ, KVO_FAULT=str(number), TMPDIR=str(scratch), OPENBLAS_NUM_THREADS="1")
    process = subprocess.Popen([program, "--gtest_fail_fast", "--gtest_brief=1"], cwd=scratch, env=environment, start_new_session=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CPU, (limit, limit)))
    try:
        output, _ = process.communicate(timeout=10 * limit) # longer than it computes: it may have to wait for others
        how = f"exit {process.returncode}" if process.returncode >= 0 else signal.Signals(-process.returncode).name
    except subprocess.TimeoutExpired:
        how = "hangs"
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    if how == "hangs":
        output = process.communicate()[0]
    if process.returncode == 0:
        return None
    failed = re.search(r"\[  FAILED  \] ([\w/.]+)", output)
    return failed.group(1) if failed else how


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("tree", type=pathlib.Path, help="folder for the copy and its build")
    parser.add_argument("--source", type=pathlib.Path, default=HERE.parent.parent, help="working tree to copy (this one)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--only", help="only the faults whose line matches this expression")
    parser.add_argument("--built", action="store_true", help="the tree is built already")
    options = parser.parse_args()
    tree = options.tree.resolve()
    faults = read_table(HERE / "faults.txt")
    if not options.built:
        prepare(options.source, tree, faults)
        build(tree, options.jobs)
    seconds = {}
    survivors = 0
    for fault in faults:
        if options.only and not re.search(options.only, str(fault)):
            continue
        caught = None
        for program in programs_of(tree, fault):
            if program not in seconds: # first as it is: it passes, and shows how long it takes
                begin = time.monotonic()
                if how := run(program, 0, 600, tree / "tmp"):
                    sys.exit(f"{program} fails without a fault: {how}")
                seconds[program] = int(time.monotonic() - begin)
            if how := run(program, fault.number, 30 + 4 * seconds[program], tree / "tmp"):
                caught = f"{program.name}: {how}"
                break
        survivors += caught is None
        print(f"{fault}\n    {caught or 'NOT CAUGHT'}", flush=True)
    print(f"{survivors} not caught")


if __name__ == "__main__":
    main()
