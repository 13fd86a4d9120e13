#!/usr/bin/env python3
"""Compares the table that report.tva printed with one that is counted here, in another way than the stages'.

Routes cut the addresses into stretches and countries are ranges of them, so a binary search finds either. What is known
of an address is kept, and so is nothing else but the figures of each country.
"""

import argparse
import bisect
import csv
import functools
import ipaddress
import itertools
import pathlib
import runpy
import sys
import types

HEADER = ["op", "country string_t", "flows uint64_t", "bytes uint64_t", "largest uint64_t"]


def checker_of(example):
    path = pathlib.Path(__file__).resolve().parent.parent / example / "checkAnswer.py"
    return types.SimpleNamespace(**runpy.run_path(str(path)))


def number_of(address):
    return int(ipaddress.IPv4Address(address))


def read_flows(folder):
    """The triples (destination, source, bytes) of the table's rows and of the events."""
    with open(folder / "net.flow.csv", encoding="ascii", newline="") as file:
        for destination, source, _, size in itertools.islice(csv.reader(file), 1, None):
            yield destination, source, int(size)
    with open(folder / "events.csv", encoding="ascii", newline="") as file:
        for line, (sign, table, destination, source, _, size) in enumerate(csv.reader(file), 1):
            if (sign, table) != ("+", "net::flow"):
                sys.exit(f"{folder}/events.csv:{line}: an event that is not a flow: {sign},{table}")
            yield destination, source, int(size)


def route_search(path):
    """A function that tells whether a route leads a destination to a neighbour."""
    parts = []
    with open(path, encoding="ascii", newline="") as file:
        for prefix, neighbour in itertools.islice(csv.reader(file), 1, None):
            network = ipaddress.IPv4Network(prefix)
            parts.append((int(network.network_address), int(network.broadcast_address), neighbour))
    firsts, owners = checker_of("routing").stretches(parts)

    @functools.cache
    def is_reached(destination):
        owner = owners[bisect.bisect_right(firsts, number_of(destination.removesuffix("/32"))) - 1]
        return owner is not None and owner[2] != ""

    return is_reached


def country_search(geoip):
    """A function that tells the country of a source."""
    ranges = checker_of("geoip").read_geoip(geoip)
    firsts = [first for first, _, _ in ranges]

    @functools.cache
    def country_of(source):
        address = number_of(source)
        first, last, country = ranges[max(0, bisect.bisect_right(firsts, address) - 1)]
        return country if first <= address <= last else "-"

    return country_of


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("geoip", help="file of ranges that the tables were made of")
    parser.add_argument("folder", type=pathlib.Path, help="where makeFlows.py has put its files")
    parser.add_argument("answer", help="what report.tva printed")
    options = parser.parse_args()

    is_reached = route_search(options.folder / "net.route.csv")
    country_of = country_search(options.geoip)
    counts, flows = {}, 0
    for destination, source, size in read_flows(options.folder):
        flows += 1
        if is_reached(destination):
            country = country_of(source)
            number, total, largest = counts.get(country, (0, 0, 0))
            counts[country] = number + 1, total + size, max(largest, size)
    expected = [["+", country, *map(str, figures)] for country, figures in
                sorted(counts.items(), key=lambda item: (-item[1][1], item[0]))]

    with open(options.answer, encoding="utf-8", newline="") as file:
        header, *found = csv.reader(file)
    if header != HEADER:
        sys.exit(f"{options.answer}:1: not the header of an answer: {','.join(header)}")
    for line, (printed, right) in enumerate(itertools.zip_longest(found, expected, fillvalue=["nothing"]), 2):
        if printed != right:
            sys.exit(f"{options.answer}:{line}: {','.join(printed)} should be {','.join(right)}")
    counted = sum(number for number, _, _ in counts.values())
    print(f"{len(found)} countries, {counted} flows in them and {flows - counted} without a neighbour: "
          "all as a count of the files finds them")


if __name__ == "__main__":
    main()
