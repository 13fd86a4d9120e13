#!/usr/bin/env python3
"""Runs examples/geoip over a small list of ranges, and has its answer checked.

The ranges are drawn, adjoin or leave gaps, and reach to both ends of the address space; asked for are the edges of
all of them and some addresses between.
"""

import argparse
import pathlib
import random
import subprocess
import sys
import tempfile

ADDRESSES = 2**32
COUNTRIES = ["AA", "BB", "CC", "??"]


def draw_ranges(count):
    """Lines "first,last,country" of ranges that leave out about every fifth stretch between random borders."""
    draw = random.Random(7)
    borders = sorted(draw.sample(range(1, ADDRESSES), count - 1))
    firsts, ends = [0, *borders], [*borders, ADDRESSES]
    for index, (first, end) in enumerate(zip(firsts, ends)):
        if index in (0, count - 1) or draw.random() < 0.8:
            yield f"{first},{end - 1},{draw.choice(COUNTRIES)}\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("tool", help="path of tvop")
    parser.add_argument("example", type=pathlib.Path, help="examples/geoip")
    options = parser.parse_args()

    with tempfile.TemporaryDirectory(prefix="tvop-geoip-") as name:
        folder = pathlib.Path(name)
        geoip, answer = folder / "geoip", folder / "answer.csv"
        geoip.write_text("# ranges\n" + "".join(draw_ranges(500)), encoding="ascii")
        subprocess.run([options.example / "makeTables.py", geoip, folder, "--count", "200", "--edges"], check=True)
        with open(answer, "wb") as out:
            subprocess.run([options.tool, "run", options.example / "country.tva", "--db", folder], stdout=out, check=True)
        subprocess.run([options.example / "checkAnswer.py", geoip, folder / "geo.address.csv", answer], check=True)


if __name__ == "__main__":
    try:
        main()
    except subprocess.CalledProcessError as error:
        sys.exit(f"{error}")
