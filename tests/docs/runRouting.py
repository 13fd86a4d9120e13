#!/usr/bin/env python3
"""Runs the queries of examples/routing over a small table, and has their answers checked.

Asked for are, besides drawn addresses, the edges of every route and their neighbours; once there is no default route,
once there are both, to be withdrawn while the standing query runs.
"""

import argparse
import csv
import ipaddress
import pathlib
import subprocess
import sys
import tempfile

DEFAULT_ROUTES = "0.0.0.0/0,192.0.2.250\n::/0,2001:db8::fa\n"
WITHDRAWALS = "+,net::route,0.0.0.0/0,\n+,net::route,::/0,\n"


def edges(routes):
    """Lines of the address table: first and last address of every route and the ones beside them."""
    for prefix, _ in routes:
        network = ipaddress.ip_network(prefix)
        kind = type(network.network_address)
        first, last = int(network.network_address), int(network.broadcast_address)
        for address in {first - 1, first, last, last + 1}:
            if 0 <= address < 1 << network.max_prefixlen:
                yield f"{kind(address)},{kind(address)}/{network.max_prefixlen}\n"


class Example:
    def __init__(self, tool, example, folder):
        self.tool, self.example, self.folder = tool, example, folder
        subprocess.run([example / "makeRoutes.py", folder, "--routes", "1500", "--addresses", "300", "--watched", "200",
                        "--events", "1000"], check=True)
        self.add_edges()

    def add_edges(self):
        with open(self.folder / "net.route.csv", encoding="ascii", newline="") as file:
            routes = list(csv.reader(file))[1:]
        with open(self.folder / "net.address.csv", "r+", encoding="ascii") as file:
            known = set(file.readlines())
            file.writelines(line for line in sorted(set(edges(routes))) if line not in known)

    def append(self, name, text):
        with open(self.folder / name, "a", encoding="ascii") as file:
            file.write(text)

    def query(self, program, *arguments):
        """The path of the answer."""
        answer = self.folder / "answer.csv"
        with open(answer, "wb") as out:
            subprocess.run([self.tool, "run", self.example / program, "--db", self.folder, *arguments], stdout=out,
                           check=True)
        return answer

    def check(self, addresses, answer, *arguments):
        subprocess.run([self.example / "checkAnswer.py", self.folder / "net.route.csv", addresses, answer, *arguments],
                       check=True)

    def run_queries(self):
        addresses = self.folder / "net.address.csv"
        self.check(addresses, self.query("lookup.tva"))
        self.check(addresses, self.query("closest.tva", "--index", f"net::route=@{self.example / 'order.tva'}"))
        watched, events = self.folder / "watched.csv", self.folder / "events.csv"
        answer = self.query("watch.tva", "--table", f"net::address={watched}", "--index", "net::address=host",
                            "--standing", "--events", events)
        self.check(watched, answer, "--events", events)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("tool", help="path of tvop")
    parser.add_argument("example", type=pathlib.Path, help="examples/routing")
    options = parser.parse_args()

    with tempfile.TemporaryDirectory(prefix="tvop-routing-") as name:
        example = Example(options.tool, options.example, pathlib.Path(name))
        example.run_queries()
        example.append("net.route.csv", DEFAULT_ROUTES)
        example.append("events.csv", WITHDRAWALS)
        example.run_queries()


if __name__ == "__main__":
    try:
        main()
    except subprocess.CalledProcessError as error:
        sys.exit(f"{error}")
