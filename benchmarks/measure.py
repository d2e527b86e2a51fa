#!/usr/bin/env python3
"""Runs the benchmarks that benchmarks/aims.csv names, compares what they show with the aims, and keeps the figures of each processor model.

A row of aims.csv names one counter of one case of one benchmark program. The figures go to docs/measurements/MODEL.md, where rows that are
not run keep what was seen before, with its commit; the tables of docs/measurements.md are made from all these files, side by side.
scripts/measure.sh builds the programs and calls this.
"""

import argparse
import csv
import datetime
import json
import os
import pathlib
import re
import resource
import statistics
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
RECORD = ROOT / "docs/measurements.md"
CASE_SECONDS = 300  # no case takes longer, unless it hangs
NOT_INSTALLED = 77  # status of a peer whose packages are missing
MISSED = ("short", "failed")
COLUMNS = "| what | against | aim | seen | spread | | commit, date |"
ONE_THREAD = {name: "1" for name in ("OPENBLAS_NUM_THREADS", "OMP_NUM_THREADS", "BLIS_NUM_THREADS")}


class Row:
    """What is measured: a counter, or its inverse where the name begins with "1/", and an aim such as "<= 1.2" or none."""

    def __init__(self, fields):
        self.key = (fields["section"], fields["what"], fields["against"])
        self.section, self.what, self.against = self.key
        self.program, self.case = fields["program"], fields["case"]
        self.inverse = fields["counter"].startswith("1/")
        self.counter = fields["counter"].removeprefix("1/")
        self.aim = fields["aim"]
        self.sense, _, limit = self.aim.partition(" ")
        if self.aim and self.sense not in ("<=", ">="):
            sys.exit(f"aims.csv: {self}: an aim is <= or >= a number, not {self.aim}")
        self.limit = float(limit) if self.aim else None
        options = dict(option.split("=") for option in fields["options"].split())
        self.min_time = options.pop("min_time", "0.2")
        self.repetitions = int(options.pop("repetitions", 3))
        self.cores = int(options.pop("cores", 1))
        if options:
            sys.exit(f"aims.csv: {self}: unknown options {options}")

    def __str__(self):
        return f"{self.section}: {self.what}" + (f", against {self.against}" if self.against else "")

    def short(self, seen, spread):
        """Whether the aim is missed by more than the repetitions differ."""
        if not self.aim:
            return False
        return seen - spread > self.limit if self.sense == "<=" else seen + spread < self.limit

    def verdict(self, seen, spread):
        """"short" of the aim; "unsure" where the repetitions differ by more than what is missing."""
        return "short" if self.short(seen, spread) else "unsure" if self.short(seen, 0) else ""

    def run(self):
        """Rows that agree in this are run together, by one process."""
        return self.program, self.min_time, self.repetitions, self.cores


class Figure:
    """What was seen of a row, as it stands in a model's file."""

    def __init__(self, seen, spread="", mark="", source=""):
        self.seen, self.spread, self.mark, self.source = seen, spread, mark, source


def number(value):
    size = abs(value)
    digits = 0 if size >= 100 else 2 if size >= 0.01 or size == 0 else 3 if size >= 0.001 else 5
    return f"{value:.{digits}f}"


def read_rows():
    with open(ROOT / "benchmarks/aims.csv", newline="") as file:
        rows = [Row(fields) for fields in csv.DictReader(file)]
    keys = [row.key for row in rows]
    for key in {key for key in keys if keys.count(key) > 1}:
        sys.exit(f"aims.csv: twice: {key}")
    return rows


# The machine

def processor():
    """Name of the processor model and of its file."""
    described = {}
    for line in pathlib.Path("/proc/cpuinfo").read_text().split("\n\n")[0].splitlines():
        name, _, value = line.partition(":")
        described[name.strip()] = value.strip()
    name = re.sub(r"\((R|TM)\)| CPU| Processor|@.*", "", described.get("model name", os.uname().machine)).strip()
    family, model = described.get("cpu family", "?"), described.get("model", "?")
    return f"{name}, family {family} model {model}", re.sub("[^a-z0-9]+", "-", f"{name} {family} {model}".lower()).strip("-")


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, cwd=ROOT).stdout.strip()


def provider(build):
    """The BLAS that the programs are given, with every link followed."""
    libraries = set()
    for program in build.glob("benchmarks/*/*_bench"):
        libraries |= {os.path.realpath(line.split()[2]) for line in output("ldd", str(program)).splitlines() if "=> /" in line and "blas" in line}
    return ", ".join(sorted(libraries)) or "unknown"


def machine(build):
    caches = []
    for index in sorted(pathlib.Path("/sys/devices/system/cpu/cpu0/cache").glob("index*")):
        level, kind, size = ((index / name).read_text().strip() for name in ("level", "type", "size"))
        if kind != "Instruction":
            caches.append(f"L{level} {size}")
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    virtual = "virtual" if "hypervisor" in pathlib.Path("/proc/cpuinfo").read_text() else "not virtual"
    return [f"{os.cpu_count()} processors, {virtual}; caches {', '.join(caches) or 'unknown'}; {memory:.0f} GiB of memory; Linux {os.uname().release}",
            f"provider {provider(build)}; compiler {output('c++', '--version').partition(chr(10))[0]}"]


def commit():
    """The commit of the working tree, with + where more than documents differ from it."""
    head = output("git", "rev-parse", "--short", "HEAD") or "unknown"
    return head + ("+" if output("git", "status", "--porcelain", "--", ".", ":!docs") else "")


def warn_of_noise():
    if os.getloadavg()[0] > 0.3:
        print(f"warning: the load is {os.getloadavg()[0]:.2f}: other work disturbs the figures")
    governors = {path.read_text().strip() for path in pathlib.Path("/sys/devices/system/cpu").glob("cpu*/cpufreq/scaling_governor")}
    if governors - {"performance"}:
        print(f"warning: the processors' clocks are scaled by {', '.join(governors)}: set the governor performance")


# Running

class LeftOut(Exception):
    """A row that cannot be measured here, and why."""


def command_of(build, program):
    """A benchmark program, or a script that answers like one."""
    if program.endswith(".py"):
        return [sys.executable, str(ROOT / "benchmarks" / program)]
    path = build / "benchmarks" / program
    if not path.exists():
        raise LeftOut("it was not built")
    return [str(path)]


def surroundings(build):
    """The variables by which programs find what else was built."""
    build = build.resolve()
    return {"KVOMTX": str(build / "tools/kvomtx"), "KVO_BENCHMARKS": str(build / "benchmarks"), "PYTHONPATH": str(build / "python")} | os.environ | ONE_THREAD


def results(build, rows, minimum=None):
    """Runs the cases of rows that agree in Row.run(); the values of the counters, by case and counter, over the repetitions."""
    first = rows[0]
    program = command_of(build, first.program)
    cases = sorted({row.case for row in rows})
    pattern = "^(" + "|".join(re.sub(r"([][(){}.*+?^$|\\])", r"\\\1", case) for case in cases) + ")(/iterations:[0-9]+)?(/manual_time)?$"
    command = program + [f"--benchmark_filter={pattern}", "--benchmark_format=json", f"--benchmark_min_time={minimum or first.min_time}",
               f"--benchmark_repetitions={1 if minimum else first.repetitions}"]
    allowed = os.sched_getaffinity(0)
    if len(allowed) < first.cores:
        raise LeftOut(f"{first.cores} processors are needed")
    processors = {max(allowed)} if first.cores == 1 else allowed  # the system knows which of them share a core
    try:
        done = subprocess.run(command, capture_output=True, text=True, timeout=CASE_SECONDS * len(cases),
                              env=surroundings(build),
                              preexec_fn=lambda: os.sched_setaffinity(0, processors))
        if done.returncode == NOT_INSTALLED:
            raise LeftOut(done.stderr.strip())
        runs = json.loads(done.stdout)["benchmarks"] if done.returncode == 0 else None
    except subprocess.TimeoutExpired:
        done, runs = None, None
    except (json.JSONDecodeError, KeyError):
        runs = None
    if runs is None and len(cases) == 1:
        raise RuntimeError("no answer in time" if done is None else f"status {done.returncode}: {' '.join(done.stderr.split()[-20:])}")
    values = {}
    if runs is None:  # one of them failed: each by itself
        for case in cases:
            try:
                values |= results(build, [row for row in rows if row.case == case], minimum)
            except RuntimeError as error:
                values[case] = str(error)
        return values
    for run in runs:
        if run.get("run_type") == "aggregate":
            continue
        case = re.sub(r"(/iterations:[0-9]+)?(/repeats:[0-9]+)?(/manual_time)?$", "", run["run_name"])
        if run.get("error_occurred"):
            values[case] = run["error_message"]
        elif not isinstance(values.get(case), str):
            for name, value in run.items():
                if isinstance(value, (int, float)) or value is None:
                    values.setdefault(case, {}).setdefault(name, []).append(value)
    return values


def processor_seconds():
    """Of the benchmarks that have ended."""
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def figure(row, values, source):
    """What the repetitions of a case say of a row."""
    seen = values.get(row.case, "the program has no such case")
    if isinstance(seen, dict):
        seen = seen.get(row.counter, "the case has no such counter")
    if isinstance(seen, str):
        return Figure("failed", mark="failed", source=f"{source}: {seen}".replace("|", "/"))
    if row.inverse:
        seen = [1 / value for value in seen]
    median = statistics.median(seen)
    spread = max(abs(value - median) for value in seen)
    return Figure(number(median), number(spread) if len(seen) > 1 else "", row.verdict(median, spread), source)


def has_no_peer(row, values):
    """Whether the case answers that its peer is not installed, by a counter without a value."""
    counters = values.get(row.case)
    return isinstance(counters, dict) and None in counters.get(row.counter, [])


def measure(rows, build, source, quick, found):
    """Yields after each process: its figures, by key."""
    groups = {}
    for row in rows:
        groups.setdefault(row.run(), []).append(row)
    for group in groups.values():
        start, worked = time.monotonic(), processor_seconds()
        try:
            values = results(build, group, "0.001" if quick else None)
            figures = {row.key: figure(row, values, source) for row in group if not has_no_peer(row, values)}
        except LeftOut as reason:
            print(f"{group[0].program}: {len(group)} rows left out, {reason}")
            continue
        except RuntimeError as error:
            figures = {row.key: Figure("failed", mark="failed", source=f"{source}: {error}".replace("|", "/")) for row in group}
        print(f"{group[0].program}: {time.monotonic() - start:.0f} s, {processor_seconds() - worked:.0f} of them processor time")
        for row in group:
            if row.key not in figures:
                print(f"  left out, the peer is not installed: {row}")
                continue
            its = figures[row.key]
            spread = f"+- {its.spread}" if its.spread else ""
            print(f"  {its.mark:6} {its.seen:>7} {spread:9} {row.aim:8} {row}")
        sys.stdout.flush()
        found |= figures
        yield figures


# Documents

def read_model(path):
    """Title, notes and figures by key of a model's file."""
    title, notes, figures, section = "", [], {}, ""
    for line in path.read_text().splitlines() if path.exists() else []:
        if line.startswith("# "):
            title = line[2:]
        elif line.startswith("## "):
            section = line[3:]
        elif line.startswith("|") and not line.startswith(("|---", COLUMNS)):
            what, against, _, seen, spread, mark, source = (cell.strip() for cell in line.strip("|").split("|"))
            figures[section, what, against] = Figure(seen, spread, mark.strip("*"), source)
        elif line and not section:
            notes.append(line)
    return title, notes, figures


def write_model(path, title, notes, figures, rows):
    lines = [f"# {title}", ""] + notes
    section = None
    for row in rows:
        its = figures.get(row.key)
        if its is None:
            continue
        if row.section != section:
            section = row.section
            lines += ["", f"## {section}", "", COLUMNS, "|---|---|---|---|---|---|---|"]
        mark = f"**{its.mark}**" if its.mark in MISSED else its.mark
        lines.append(f"| {row.what} | {row.against} | {row.aim} | {its.seen} | {its.spread} | {mark} | {its.source} |")
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("\n".join(lines) + "\n")


def side_by_side(section, rows, models):
    lines = ["| what | against | aim | " + " | ".join(title for title, _, _ in models) + " |", "|---|---|---|" + "---|" * len(models)]
    for row in rows:
        if row.section == section:
            seen = []
            for _, _, figures in models:
                its = figures.get(row.key, Figure(""))
                seen.append(f"**{its.seen}**" if its.mark in MISSED else its.seen)
            lines.append(f"| {row.what} | {row.against} | {row.aim} | " + " | ".join(seen) + " |")
    return "\n".join(lines)


def with_tables(text, rows, measurements):
    """The document with its tables made anew."""
    models = [read_model(path) for path in sorted(measurements.glob("*.md"))]
    for section in dict.fromkeys(row.section for row in rows):
        begin, end = f"<!-- made by scripts/measure.sh: {section} -->\n", "<!-- end -->\n"
        if begin not in text:
            sys.exit(f"docs/measurements.md has no table for {section}")
        before, _, rest = text.partition(begin)
        text = before + begin + "\n" + side_by_side(section, rows, models) + "\n\n" + end + rest.partition(end)[2]
    return text


def check(rows, build, measurements):
    """Every row names a case that exists, and the tables are those of the figures."""
    wrong = []
    for program in dict.fromkeys(row.program for row in rows):
        done = subprocess.run(command_of(build, program) + ["--benchmark_list_tests"], capture_output=True, text=True)
        cases = {re.sub(r"(/iterations:[0-9]+)?(/manual_time)?$", "", line) for line in done.stdout.splitlines()}
        if done.returncode != NOT_INSTALLED:
            wrong += [f"{program} has no case {row.case}" for row in rows if row.program == program and row.case not in cases]
    text = RECORD.read_text()
    if with_tables(text, rows, measurements) != text:
        wrong.append("docs/measurements.md is older than its figures: scripts/measure.sh --tables")
    print("\n".join(wrong))
    return 1 if wrong else 0


def main():
    parser = argparse.ArgumentParser(prog="scripts/measure.sh", description="Measures, and compares with the aims; status 1 where one is missed.")
    parser.add_argument("--only", metavar="REGEX", default="", help='rows whose "section: what, against peer" it is found in')
    parser.add_argument("--missing", action="store_true", help="rows that this commit has no figure of, after a run that was cut off")
    parser.add_argument("--list", action="store_true", help="name the rows and end")
    parser.add_argument("--tables", action="store_true", help="make the tables of docs/measurements.md anew and end")
    parser.add_argument("--check", action="store_true", help="check aims.csv against the programs, and the tables against the figures, and end")
    parser.add_argument("--quick", action="store_true", help="each case once; for tests")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/bench", help="where the programs were built")
    parser.add_argument("--measurements", type=pathlib.Path, default=ROOT / "docs/measurements", help="the folder of the models' files")
    arguments = parser.parse_args()

    rows = read_rows()
    chosen = [row for row in rows if re.search(arguments.only, str(row))]
    title, name = processor()
    path, source = arguments.measurements / f"{name}.md", f"{commit()}, {datetime.date.today()}"
    _, _, figures = read_model(path)
    if arguments.missing:
        chosen = [row for row in chosen if row.key not in figures or figures[row.key].source != source or figures[row.key].mark == "failed"]
    if arguments.list:
        print("\n".join(map(str, chosen)))
        return 0
    if arguments.check:
        return check(rows, arguments.build, arguments.measurements)
    if not arguments.tables:
        if not chosen:
            sys.exit("no such rows")
        warn_of_noise()
        start, found = time.monotonic(), {}
        notes = ["Written by scripts/measure.sh: medians of repetitions, and their largest distance from it. Last run:"]
        notes += machine(arguments.build)
        print(f"{title}, commit {source}\n" + "\n".join(notes[1:]))
        for some in measure(chosen, arguments.build, source, arguments.quick, found):
            figures |= some
            write_model(path, title, notes, figures, rows)
        missed = [row for row in chosen if row.key in found and found[row.key].mark in MISSED]
        print(f"{len(found)} rows in {(time.monotonic() - start) / 60:.1f} minutes, written to {path}; short of the aim or failed: {len(missed)}")
        for row in missed:
            print(f"  {row}: aim {row.aim}, seen {found[row.key].seen}")
        failed = bool(missed)
    else:
        failed = False
    if arguments.measurements == ROOT / "docs/measurements":
        RECORD.write_text(with_tables(RECORD.read_text(), rows, arguments.measurements))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
