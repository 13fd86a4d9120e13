#!/usr/bin/env python3
"""Compares an answer of country.tva with a search through the geoip file itself, in another way than the query's."""

import argparse
import bisect
import csv
import ipaddress
import sys


def read_geoip(path):
    lines = (line for line in open(path, encoding="utf-8") if line.strip() and not line.startswith("#"))
    return sorted((int(first), int(last), country) for first, last, country in csv.reader(map(str.strip, lines)))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("geoip", help="file of ranges that the tables were made of")
    parser.add_argument("addresses", help="geo.address.csv")
    parser.add_argument("answer", help="what the query printed")
    options = parser.parse_args()

    ranges = read_geoip(options.geoip)
    firsts = [first for first, _, _ in ranges]

    def country_of(text):
        address = int(ipaddress.IPv4Address(text))
        index = bisect.bisect_right(firsts, address) - 1
        return ranges[index][2] if index >= 0 and address <= ranges[index][1] else "-"

    with open(options.addresses, encoding="ascii") as file:
        asked = [row[0] for row in list(csv.reader(file))[1:]]
    with open(options.answer, encoding="ascii") as file:
        header, *answers = csv.reader(file)
    expected = [[address, country_of(address)] for address in asked]
    if header != ["address IpAddr", "country string_t"]:
        sys.exit(f"{options.answer}:1: not the header of an answer: {','.join(header)}")
    if len(answers) != len(expected):
        sys.exit(f"{options.answer}: {len(answers)} answers to {len(expected)} addresses")
    for line, (found, right) in enumerate(zip(answers, expected), 2):
        if found != right:
            sys.exit(f"{options.answer}:{line}: {','.join(found)} should be {','.join(right)}")
    print(f"{len(answers)} answers, all as a search through the ranges finds them")


if __name__ == "__main__":
    main()
