#!/usr/bin/env python3
"""Runs the case files of this folder through tvop.

A case is one text file, *.case, of sections that begin with "--- NAME":

    # what the case shows
    --- args
    run query.tva --table demo::in=in.csv --table demo::out=out.csv
    --- file query.tva
    ...
    --- file in.csv
    ...
    --- stdin
    --- stdout
    --- stderr
    --- status
    1

`args` is split as a shell splits it. The tool runs in a fresh folder that holds the files of the case. Where stdout,
stderr or status are missing, they are empty, empty and 0. Behind a section's name the word "crlf" writes its lines
with carriage returns, "open" leaves out its last line end, "match" compares each line as a regular expression, and
"repeat" writes TEXT N times for {N*TEXT}.

A case whose `run` does not set --capacity itself is run again at capacities 1, 2 and 3, and with a trace level on, which
must not change what it prints: with a level on, other handlers carry the instructions out, one by one.
"""

import argparse
import concurrent.futures
import difflib
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

SECTIONS = {"args", "file", "stdin", "stdout", "stderr", "status"}
MODIFIERS = {"crlf", "open", "match", "repeat"}
TIMEOUT = 60


class Section:
    def __init__(self, header, lines):
        words = header.split()
        self.header = header
        self.kind = words[0]
        if self.kind not in SECTIONS:
            raise ValueError(f"no section '{self.kind}'")
        self.file = words[1] if self.kind == "file" else None
        self.modifiers = set(words[2 if self.file else 1:])
        if self.modifiers - MODIFIERS:
            raise ValueError(f"no modifier '{' '.join(self.modifiers - MODIFIERS)}'")
        self.text = "".join(lines)

    def expanded(self):
        if "repeat" not in self.modifiers:
            return self.text
        return re.sub(r"\{([0-9]+)\*([^{}]*)\}", lambda found: found[2] * int(found[1]), self.text)

    def data(self):
        text = self.expanded()[:-1] if "open" in self.modifiers else self.expanded()
        return (text.replace("\n", "\r\n") if "crlf" in self.modifiers else text).encode("utf-8", "surrogateescape")


class Case:
    def __init__(self, path):
        self.path = path
        self.comment, self.sections = [], []
        lines = path.read_text(errors="surrogateescape").splitlines(keepends=True)
        starts = [i for i, line in enumerate(lines) if line.startswith("--- ")]
        self.comment = lines[: starts[0]] if starts else lines
        for begin, end in zip(starts, starts[1:] + [len(lines)]):
            self.sections.append(Section(lines[begin][4:].strip(), lines[begin + 1 : end]))
        if self.section("args") is None:
            raise ValueError("no args section")
        self.args = shlex.split(self.section("args").text)
        self.files = [s for s in self.sections if s.kind == "file"]
        status = self.section("status")
        self.status = int(status.text) if status else 0

    def section(self, kind):
        return next((s for s in self.sections if s.kind == kind), None)

    def data(self, kind):
        section = self.section(kind)
        return section.data() if section else b""

    def is_varied(self):
        return self.args[:1] == ["run"] and "--help" not in self.args and "--capacity" not in self.args

    def rewrite(self, outcome):
        """Puts what the tool did into the sections that do not match it."""
        for kind, actual in (("stdout", outcome.stdout), ("stderr", outcome.stderr), ("status", f"{outcome.status}\n")):
            expected = self.section(kind)
            if matches(self, kind, actual):
                continue
            if expected is None:
                expected = Section(kind, [])
                self.sections.append(expected)
            expected.text = actual
        kept = [s for s in self.sections if s.text or s.kind not in ("stdout", "stderr")]
        kept = [s for s in kept if s.kind != "status" or s.text.strip() != "0"]
        self.path.write_text("".join(self.comment) + "".join(f"--- {s.header}\n{s.text}" for s in kept),
                             errors="surrogateescape")


class Outcome:
    def __init__(self, completed):
        self.stdout = completed.stdout.decode("utf-8", "surrogateescape")
        self.stderr = completed.stderr.decode("utf-8", "surrogateescape")
        self.status = completed.returncode


def run_tool(tool, case, extra=()):
    with tempfile.TemporaryDirectory(prefix="tvop-case-") as folder:
        for section in case.files:
            file = pathlib.Path(folder, section.file)
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(section.data())
        return Outcome(subprocess.run([tool, *case.args, *extra], cwd=folder, input=case.data("stdin"),
                                      capture_output=True, timeout=TIMEOUT, check=False))


def matches(case, kind, actual):
    if kind == "status":
        return actual == f"{case.status}\n"
    section = case.section(kind)
    expected = section.expanded() if section else ""
    if section is None or "match" not in section.modifiers:
        return actual == expected
    patterns, lines = expected.splitlines(), actual.splitlines()
    return len(patterns) == len(lines) and all(re.fullmatch(p, line) for p, line in zip(patterns, lines))


def difference(name, expected, actual):
    lines = difflib.unified_diff(expected.splitlines(keepends=True), actual.splitlines(keepends=True),
                                 f"{name} expected", f"{name} actual")
    return "".join(line if line.endswith("\n") else f"{line}\n\\ no line end\n" for line in lines)


def check(tool, path, rewrite):
    """The report on one case; empty when it passes."""
    try:
        case = Case(path)
        outcome = run_tool(tool, case)
        actual = {"stdout": outcome.stdout, "stderr": outcome.stderr, "status": f"{outcome.status}\n"}
        wrong = [kind for kind in actual if not matches(case, kind, actual[kind])]
        if wrong and rewrite:
            case.rewrite(outcome)
            return ""
        report = ""
        for kind in wrong:
            section = case.section(kind)
            report += difference(kind, section.expanded() if section else "0\n" if kind == "status" else "", actual[kind])
        if report or not case.is_varied():
            return report
        for option in ("--capacity=1", "--capacity=2", "--capacity=3", "--trace=Stack=4"):
            again = run_tool(tool, case, (option,))
            if (again.stdout, again.status) != (outcome.stdout, outcome.status):
                report += f"with {option}, status {again.status}:\n"
                report += difference("stdout", outcome.stdout, again.stdout) + again.stderr
        return report
    except (ValueError, OSError, subprocess.TimeoutExpired) as error:
        return f"{error}\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("tool", help="path of tvop")
    parser.add_argument("filter", nargs="*", help="run only cases whose path holds one of these texts")
    parser.add_argument("--rewrite", action="store_true", help="write what the tool does into cases that fail")
    parser.add_argument("-v", "--verbose", action="store_true", help="name every case")
    parser.add_argument("-j", "--jobs", type=int, default=2, help="cases that run at the same time (2)")
    options = parser.parse_intermixed_args()

    folder = pathlib.Path(__file__).resolve().parent
    cases = sorted(folder.rglob("*.case"))
    names = {path: str(path.relative_to(folder)) for path in cases}
    if options.filter:
        cases = [path for path in cases if any(text in names[path] for text in options.filter)]
    tool = os.path.abspath(options.tool)
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for path, report in zip(cases, pool.map(lambda p: check(tool, p, options.rewrite), cases)):
            if report:
                failed += 1
                print(f"FAILED {names[path]}\n{report}")
            elif options.verbose:
                print(f"passed {names[path]}")
    print(f"{len(cases) - failed} passed, {failed} failed")
    return 1 if failed or not cases else 0


if __name__ == "__main__":
    sys.exit(main())
