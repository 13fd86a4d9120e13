#!/usr/bin/env python3
"""Shows what report.tva printed as a table for reading: the countries with most bytes, the others together, and all."""

import argparse
import csv

BAR = 24  # characters for the country with most bytes


def in_units(size):
    """1234567 as "1.23 MB": three digits, all of them for bytes."""
    units = ["B", "kB", "MB", "GB", "TB", "PB", "EB"]
    while size >= 999.5 and len(units) > 1:
        size /= 1000
        units.pop(0)
    digits = 0 if units[0] == "B" or size >= 99.95 else 1 if size >= 9.995 else 2
    return f"{size:.{digits}f} {units[0]:<2}"


def together(rows):
    """Flows, bytes and largest flow of some countries."""
    return sum(row[0] for row in rows), sum(row[1] for row in rows), max(row[2] for row in rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("answer", help="what report.tva printed")
    parser.add_argument("--top", type=int, default=10, help="countries to show (10)")
    options = parser.parse_args()
    with open(options.answer, encoding="utf-8", newline="") as file:
        rows = [(country, *map(int, figures)) for _, country, *figures in list(csv.reader(file))[1:]]
    if not rows:
        print("no flows")
        return

    shown = rows[:options.top]
    if others := rows[options.top:]:
        shown.append((f"{len(others)} others", *together([row[1:] for row in others])))
    everything = together([row[1:] for row in rows])
    print(f"{'country':<12}{'flows':>12}{'bytes':>12}{'largest flow':>16}    share of bytes")
    for name, flows, size, largest in [*shown, ("all", *everything)]:
        share = size / max(1, everything[1])
        bar = "#" * round(BAR * size / max(1, rows[0][2])) if len(name) == 2 else ""
        print(f"{name:<12}{flows:>12,}{in_units(size):>12}{in_units(largest):>16}    {share:6.1%}  {bar}".rstrip())


if __name__ == "__main__":
    main()
