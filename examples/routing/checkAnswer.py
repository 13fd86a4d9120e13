#!/usr/bin/env python3
"""Compares an answer of the routing queries with one that is found in another way than theirs.

Nested prefixes cut the addresses into stretches that one route serves each; which stretch an address lies in is a
binary search. Of a standing query's answer, what its changes leave at the end is compared.
"""

import argparse
import bisect
import csv
import ipaddress
import itertools
import sys

ANSWER_COLUMNS = ["address IpGenAddr key", "prefix IpGenPrefix", "nextHop IpGenAddr"]


def read_table(path):
    with open(path, encoding="ascii", newline="") as file:
        header, *rows = csv.reader(file)
    return header, rows


def apply_events(path, routes):
    with open(path, encoding="ascii", newline="") as file:
        for sign, table, prefix, next_hop in csv.reader(file):
            if (sign, table) != ("+", "net::route"):
                sys.exit(f"{path}: an event that is not a route: {sign},{table}")
            routes[prefix] = next_hop


def stretches(routes):
    """First addresses of stretches, and the route that serves each, or None, for routes (first, last, prefix)."""
    firsts, owners, nested = [0], [None], []

    def begin(first, owner):
        firsts.append(first)
        owners.append(owner)

    def end_before(address):
        while nested and (address is None or nested[-1][1] < address):
            _, last, _ = nested.pop()
            begin(last + 1, nested[-1] if nested else None)

    for route in sorted(routes, key=lambda route: (route[0], -route[1])):
        end_before(route[0])
        begin(route[0], route)
        nested.append(route)
    end_before(None)
    return firsts, owners


class Search:
    def __init__(self, next_hops):
        self.next_hops = next_hops
        routes = {4: [], 6: []}
        for prefix, next_hop in next_hops.items():
            if next_hop:
                network = ipaddress.ip_network(prefix)
                first = int(network.network_address)
                routes[network.version].append((first, first | int(network.hostmask), prefix))
        self.stretches = {version: stretches(of_version) for version, of_version in routes.items()}

    def answer(self, text):
        address = ipaddress.ip_address(text)
        firsts, owners = self.stretches[address.version]
        owner = owners[bisect.bisect_right(firsts, int(address)) - 1]
        return [owner[2], self.next_hops[owner[2]]] if owner else ["", ""]


def final_rows(path):
    """The rows (address, prefix, next hop) of an answer; those left over, where it tells changes."""
    header, rows = read_table(path)
    if header == ANSWER_COLUMNS:
        return rows
    if header != ["op", *ANSWER_COLUMNS]:
        sys.exit(f"{path}:1: not the header of an answer: {','.join(header)}")
    left = {}
    for line, (sign, address, *route) in enumerate(rows, 2):
        if (sign == "-") != (address in left) or sign == "-" and left.pop(address) != route:
            sys.exit(f"{path}:{line}: {sign} of {address} does not follow from the lines above")
        if sign == "+":
            left[address] = route
    return [[address, *route] for address, route in left.items()]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("routes", help="net.route.csv")
    parser.add_argument("addresses", help="net.address.csv, or the addresses that were watched")
    parser.add_argument("answer", help="what the query printed")
    parser.add_argument("--events", help="what happened to the routes while it ran")
    options = parser.parse_args()

    routes = dict(read_table(options.routes)[1])
    if options.events:
        apply_events(options.events, routes)
    search = Search(routes)
    expected = {address: search.answer(address) for address, _ in read_table(options.addresses)[1]}
    found = {address: route for address, *route in final_rows(options.answer)}
    for address in itertools.chain(expected, found):
        if found.get(address) != expected.get(address):
            sys.exit(f"{options.answer}: {address} has {found.get(address)}, should have {expected.get(address)}")
    without = sum(not prefix for prefix, _ in expected.values())
    print(f"{len(expected)} answers, {without} of them without a route, all as a search through the routes finds them")


if __name__ == "__main__":
    main()
