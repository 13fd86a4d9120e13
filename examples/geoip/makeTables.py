#!/usr/bin/env python3
"""Makes the three table files of the query country.tva in a folder:

geo.range.csv    the ranges of a geoip file, of lines "first,last,country" with addresses as decimal numbers
geo.address.csv  addresses to ask for: most inside of a range, some anywhere
geo.country.csv  the answer's columns, without a row

The same file and the same seed make the same tables.
"""

import argparse
import bisect
import itertools
import pathlib
import random
import sys

ADDRESSES = 2**32
ANYWHERE = 0.05  # share of addresses that are drawn from all there are


def dotted(number):
    return ".".join(str(number >> shift & 255) for shift in (24, 16, 8, 0))


def read_ranges(path):
    """The ranges (first, last, country) in order; ValueError where the file is not such a list."""
    ranges = []
    for line_number, line in enumerate(open(path, encoding="utf-8"), 1):
        line = line.strip()
        if not line or line.startswith("#"):
            continue
        try:
            first, last, country = line.split(",")
            first, last = int(first), int(last)
        except ValueError:
            raise ValueError(f"{path}:{line_number}: not FIRST,LAST,COUNTRY: {line}") from None
        if not 0 <= first <= last < ADDRESSES:
            raise ValueError(f"{path}:{line_number}: not a range of addresses: {line}")
        if ranges and first <= ranges[-1][1]:
            raise ValueError(f"{path}:{line_number}: the range begins before the one above it ends: {line}")
        ranges.append((first, last, country))
    if not ranges:
        raise ValueError(f"{path}: no ranges")
    return ranges


def draw_addresses(ranges, count, seed):
    """Addresses of which every one inside of a range is equally likely, but for those drawn from anywhere."""
    draw = random.Random(seed)
    ends = list(itertools.accumulate(last - first + 1 for first, last, _ in ranges))
    for _ in range(count):
        if draw.random() < ANYWHERE:
            yield draw.randrange(ADDRESSES)
            continue
        position = draw.randrange(ends[-1])
        index = bisect.bisect_right(ends, position)
        yield ranges[index][1] - (ends[index] - 1 - position)


def edge_addresses(ranges):
    """First and last address of every range and their neighbours."""
    edges = {address for first, last, _ in ranges for address in (first - 1, first, last, last + 1)}
    return sorted(address for address in edges if 0 <= address < ADDRESSES)


def write_table(path, header, lines):
    with open(path, "w", encoding="ascii") as file:
        file.write(header + "\n")
        file.writelines(line + "\n" for line in lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("geoip", help="file of ranges, such as /usr/share/tor/geoip")
    parser.add_argument("folder", type=pathlib.Path, help="where the tables go")
    parser.add_argument("--count", type=int, default=10_000, help="addresses to draw (10000)")
    parser.add_argument("--seed", type=int, default=1, help="what they are drawn by (1)")
    parser.add_argument("--edges", action="store_true", help="add the edges of all ranges and their neighbours")
    options = parser.parse_args()
    try:
        ranges = read_ranges(options.geoip)
    except (OSError, ValueError) as error:
        sys.exit(f"{parser.prog}: {error}")

    addresses = list(draw_addresses(ranges, options.count, options.seed))
    if options.edges:
        addresses += edge_addresses(ranges)
    options.folder.mkdir(parents=True, exist_ok=True)
    write_table(options.folder / "geo.range.csv", "last IpAddr key,first IpAddr,country string_t",
                (f"{dotted(last)},{dotted(first)},{country}" for first, last, country in ranges))
    write_table(options.folder / "geo.address.csv", "address IpAddr", map(dotted, addresses))
    write_table(options.folder / "geo.country.csv", "address IpAddr,country string_t", ())
    print(f"{len(ranges)} ranges, {len(addresses)} addresses")


if __name__ == "__main__":
    main()
