#!/usr/bin/env python3
"""Runs the queries of an example over small tables, and has their answers checked.

geoip: the ranges are drawn, adjoin or leave gaps, and reach to both ends of the address space; asked for are the edges
of all of them and some addresses between.
routing: asked for are, besides drawn addresses, the edges of every route and their neighbours; once there is no default
route, once there are both, to be withdrawn while the standing query runs.
flows: some come from the edges of all ranges; the first one of each source is there before the run. Neither the room
that tables have nor the order in which the stages run makes a difference.
"""

import argparse
import csv
import ipaddress
import itertools
import pathlib
import random
import subprocess
import sys
import tempfile

ADDRESSES = 2**32
COUNTRIES = ["AA", "BB", "CC", "??"]
DEFAULT_ROUTES = "0.0.0.0/0,192.0.2.250\n::/0,2001:db8::fa\n"
WITHDRAWALS = "+,net::route,0.0.0.0/0,\n+,net::route,::/0,\n"

# Where tables are small, the flows of the first table make the stages stop each other.
FLOW_RUNS = ["", "--capacity=1", "--capacity=16", "--capacity=1 --seed=1", "--capacity=16 --seed=2"]


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


def run_flows(example):
    geoip, events = example.folder / "geoip", example.folder / "events.csv"
    lines = list(draw_ranges(300))
    geoip.write_text("".join(lines), encoding="ascii")
    example.run("makeFlows.py", geoip, example.folder, "--flows", "3000", "--hosts", "200", "--routes", "1000")

    flows = [line.split(",") for line in events.read_text(encoding="ascii").splitlines()]
    destinations = itertools.cycle(flow[2] for flow in flows)
    borders = {int(border) for line in lines for border in line.split(",")[:2]}
    sources = {near for border in borders for near in (border - 1, border, border + 1) if 0 <= near < ADDRESSES}
    flows += [["+", "net::flow", next(destinations), str(ipaddress.IPv4Address(source)), "0", "1"]
              for source in sorted(sources)]
    first_of_source = {}
    later = [flow for flow in flows if first_of_source.setdefault(flow[3], flow) is not flow]
    example.append("net.flow.csv", "".join(",".join(flow[2:]) + "\n" for flow in first_of_source.values()))
    events.write_text("".join(",".join(flow) + "\n" for flow in later), encoding="ascii")

    stages = [example.programs / name for name in ("locate.tva", "count.tva", "report.tva")]
    indexes = [f"--index=net::country=@{example.programs / name}" for name in ("merge.tva", "order.tva")]
    for options in FLOW_RUNS:
        print("flows", options, flush=True)
        answer = example.query("route.tva", *stages, *indexes, "--standing", "--events", events, *options.split())
        example.run("checkAnswer.py", geoip, example.folder, answer)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("tool", help="path of tvop")
    parser.add_argument("example", type=pathlib.Path, help="examples/geoip, examples/routing or examples/flows")
    options = parser.parse_args()
    run = {"geoip": run_geoip, "routing": run_routing, "flows": run_flows}[options.example.name]
    with tempfile.TemporaryDirectory(prefix="tvop-example-") as name:
        run(Example(options.tool, options.example, pathlib.Path(name)))


if __name__ == "__main__":
    try:
        main()
    except subprocess.CalledProcessError as error:
        sys.exit(f"{error}")
