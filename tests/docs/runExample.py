#!/usr/bin/env python3
"""Runs the queries of an example over small tables, and has their answers checked.

geoip: the ranges are drawn, adjoin or leave gaps, and reach to both ends of the address space; asked for are the edges
of all of them and some addresses between.
routing: asked for are, besides drawn addresses, the edges of every route and their neighbours; once there is no default
route, once there are both, to be withdrawn while the standing query runs.
"""

import argparse
import csv
import ipaddress
import pathlib
import random
import subprocess
import sys
import tempfile

ADDRESSES = 2**32
COUNTRIES = ["AA", "BB", "CC", "??"]
DEFAULT_ROUTES = "0.0.0.0/0,192.0.2.250\n::/0,2001:db8::fa\n"
WITHDRAWALS = "+,net::route,0.0.0.0/0,\n+,net::route,::/0,\n"


class Example:
    def __init__(self, tool, programs, folder):
        self.tool, self.programs, self.folder = tool, programs, folder

    def run(self, script, *arguments):
        subprocess.run([self.programs / script, *arguments], check=True)

    def query(self, program, *arguments):
        """The path of the answer."""
        answer = self.folder / "answer.csv"
        with open(answer, "wb") as out:
            subprocess.run([self.tool, "run", self.programs / program, "--db", self.folder, *arguments], stdout=out,
                           check=True)
        return answer

    def append(self, name, text):
        with open(self.folder / name, "a", encoding="ascii") as file:
            file.write(text)


def draw_ranges(count):
    """Lines "first,last,country" of ranges that leave out about every fifth stretch between random borders."""
    draw = random.Random(7)
    borders = sorted(draw.sample(range(1, ADDRESSES), count - 1))
    firsts, ends = [0, *borders], [*borders, ADDRESSES]
    for index, (first, end) in enumerate(zip(firsts, ends)):
        if index in (0, count - 1) or draw.random() < 0.8:
            yield f"{first},{end - 1},{draw.choice(COUNTRIES)}\n"


def run_geoip(example):
    geoip = example.folder / "geoip"
    geoip.write_text("# ranges\n" + "".join(draw_ranges(500)), encoding="ascii")
    example.run("makeTables.py", geoip, example.folder, "--count", "200", "--edges")
    example.run("checkAnswer.py", geoip, example.folder / "geo.address.csv", example.query("country.tva"))


def edges(routes):
    """Lines of the address table: first and last address of every route and the ones beside them."""
    for prefix, _ in routes:
        network = ipaddress.ip_network(prefix)
        kind = type(network.network_address)
        first, last = int(network.network_address), int(network.broadcast_address)
        for address in {first - 1, first, last, last + 1}:
            if 0 <= address < 1 << network.max_prefixlen:
                yield f"{kind(address)},{kind(address)}/{network.max_prefixlen}\n"


def query_routes(example):
    routes, addresses = example.folder / "net.route.csv", example.folder / "net.address.csv"
    watched, events = example.folder / "watched.csv", example.folder / "events.csv"
    example.run("checkAnswer.py", routes, addresses, example.query("lookup.tva"))
    answer = example.query("closest.tva", "--index", f"net::route=@{example.programs / 'order.tva'}")
    example.run("checkAnswer.py", routes, addresses, answer)
    answer = example.query("watch.tva", "--table", f"net::address={watched}", "--index", "net::address=host", "--standing",
                           "--events", events)
    example.run("checkAnswer.py", routes, watched, answer, "--events", events)


def run_routing(example):
    example.run("makeRoutes.py", example.folder, "--routes", "1500", "--addresses", "300", "--watched", "200", "--events",
                "1000")
    with open(example.folder / "net.route.csv", encoding="ascii", newline="") as file:
        routes = list(csv.reader(file))[1:]
    known = set((example.folder / "net.address.csv").read_text(encoding="ascii").splitlines(keepends=True))
    example.append("net.address.csv", "".join(sorted(set(edges(routes)) - known)))
    query_routes(example)
    example.append("net.route.csv", DEFAULT_ROUTES)
    example.append("events.csv", WITHDRAWALS)
    query_routes(example)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("tool", help="path of tvop")
    parser.add_argument("example", type=pathlib.Path, help="examples/geoip or examples/routing")
    options = parser.parse_args()
    run = {"geoip": run_geoip, "routing": run_routing}[options.example.name]
    with tempfile.TemporaryDirectory(prefix="tvop-example-") as name:
        run(Example(options.tool, options.example, pathlib.Path(name)))


if __name__ == "__main__":
    try:
        main()
    except subprocess.CalledProcessError as error:
        sys.exit(f"{error}")
