#!/usr/bin/env python3
"""Runs what a document shows, and compares.

Of a document's fenced blocks, one that opens with ```LANGUAGE FILE is written to that file, and one that opens with
```console is run: a line "$ COMMAND", and below it what the command prints, standard error included. It all happens
in order, in a fresh folder that holds a copy of examples/, with tvop on the path.
"""

import argparse
import difflib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

FENCE = re.compile(r"^```(?P<info>.*)\n(?P<body>(?:.*\n)*?)```$", re.MULTILINE)
TIMEOUT = 60


def commands(body):
    """The pairs (command, expected output) of a console block."""
    for part in re.split(r"^\$ ", body, flags=re.MULTILINE)[1:]:
        command, _, expected = part.partition("\n")
        while command.endswith("\\"):
            more, _, expected = expected.partition("\n")
            command = f"{command}\n{more}"
        yield command, expected


def run(command, folder, environment):
    return subprocess.run(command, shell=True, cwd=folder, env=environment, stdin=subprocess.DEVNULL, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=TIMEOUT, check=False).stdout


def run_blocks(text, folder, environment):
    """The number of commands run and the reports on those that printed something else."""
    count, reports = 0, []
    for fence in FENCE.finditer(text):
        language, *words = fence["info"].split() or [""]
        if language == "console":
            for command, expected in commands(fence["body"]):
                count += 1
                actual = run(command, folder, environment)
                if actual != expected:
                    lines = difflib.unified_diff(expected.splitlines(), actual.splitlines(), "shown", "printed", lineterm="")
                    reports.append("\n".join([f"$ {command}", *lines]))
        elif words:
            (folder / words[0]).write_text(fence["body"], encoding="utf-8")
    return count, reports


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("tool", type=pathlib.Path, help="path of tvop")
    parser.add_argument("source", type=pathlib.Path, help="the source tree")
    parser.add_argument("document", help="the document, as a path in the source tree")
    options = parser.parse_args()

    environment = dict(os.environ, PATH=f"{options.tool.resolve().parent}:{os.environ['PATH']}")
    with tempfile.TemporaryDirectory(prefix="tvop-document-") as name:
        folder = pathlib.Path(name)
        shutil.copytree(options.source / "examples", folder / "examples")
        text = (options.source / options.document).read_text(encoding="utf-8")
        count, reports = run_blocks(text, folder, environment)
    for report in reports:
        print(report)
    print(f"{options.document}: {count} commands, {len(reports)} print something else")
    return 1 if reports or not count else 0


if __name__ == "__main__":
    sys.exit(main())
