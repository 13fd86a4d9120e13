#!/usr/bin/env python3
"""Makes the table files of the routing queries in a folder:

net.route.csv    routes of both families; the lengths of their prefixes are spread as on the Internet's backbone
net.address.csv  addresses to look up: most inside of a route, some anywhere
net.answer.csv   the answer's columns, without a row
watched.csv      a few of the addresses, for the standing query
events.csv       what happens while it watches: routes come, move to another next hop and are withdrawn

The same arguments make the same files.
"""

import argparse
import ipaddress
import pathlib
import random
import sys

# For each family: bits of an address, blocks that routes are drawn from, routes in a thousand by prefix length.
FAMILIES = {
    4: (32, ["1.0.0.0/8", "2.0.0.0/7", "4.0.0.0/6", "8.0.0.0/7", "12.0.0.0/6", "16.0.0.0/4", "32.0.0.0/3",
             "64.0.0.0/2", "128.0.0.0/2", "192.0.0.0/3"],
        {8: 0.1, 9: 0.1, 10: 0.1, 11: 0.2, 12: 0.5, 13: 1, 14: 2, 15: 2, 16: 14, 17: 9, 18: 15, 19: 26, 20: 46,
         21: 54, 22: 115, 23: 105, 24: 610}),
    6: (128, ["2001::/16", "2400::/12", "2600::/12", "2800::/12", "2a00::/12", "2c00::/12"],
        {20: 0.2, 24: 0.4, 28: 1.5, 29: 27, 30: 5, 31: 2, 32: 120, 33: 22, 34: 18, 35: 9, 36: 45, 37: 6, 38: 16,
         39: 9, 40: 85, 41: 6, 42: 27, 43: 8, 44: 105, 45: 15, 46: 37, 47: 36, 48: 400}),
}
INSIDE = 0.55    # share of routes that lie inside of a shorter one
ANYWHERE = 0.05  # share of addresses that are drawn from all there are
NEXT_HOPS = {4: "192.0.2.{}", 6: "2001:db8::{:x}"}
NEIGHBOURS = 40


class Family:
    """The routes of one family, and draws from them. Prefixes are pairs (first address, length)."""

    def __init__(self, version, draw):
        self.version, self.draw = version, draw
        self.bits, blocks, self.shares = FAMILIES[version]
        self.blocks = [(int(block.network_address), block.prefixlen) for block in map(ipaddress.ip_network, blocks)]
        self.routes = {}

    def next_hop(self):
        return NEXT_HOPS[self.version].format(self.draw.randrange(1, NEIGHBOURS + 1))

    def inside(self, prefix, length):
        first, outer = prefix
        return first | self.draw.getrandbits(length - outer) << self.bits - length, length

    def fill(self, count):
        """Adds routes, short prefixes first, so that longer ones can lie inside of them."""
        whole = sum(self.shares.values())
        shorter = []
        for length, share in self.shares.items():
            wanted = len(self.routes) + max(1, round(count * share / whole))
            added = []
            while len(self.routes) < wanted:
                from_routes = shorter and self.draw.random() < INSIDE
                prefix = self.inside(self.draw.choice(shorter if from_routes else self.blocks), length)
                if prefix not in self.routes:
                    self.routes[prefix] = self.next_hop()
                    added.append(prefix)
            shorter += added

    def addresses(self, count):
        """As many addresses, none of them twice."""
        drawn, routes = {}, list(self.routes)
        while len(drawn) < count:
            anywhere = self.draw.random() < ANYWHERE
            drawn[self.inside((0, 0) if anywhere else self.draw.choice(routes), self.bits)[0]] = None
        return list(drawn)

    def text(self, address):
        return str((ipaddress.IPv4Address if self.version == 4 else ipaddress.IPv6Address)(address))

    def route_text(self, prefix, next_hop):
        return f"{self.text(prefix[0])}/{prefix[1]},{next_hop}"

    def address_text(self, address):
        return f"{self.text(address)},{self.text(address)}/{self.bits}"

    def event(self, watched):
        """A change of a route, most often of one that holds a watched address."""
        length = self.draw.choices(list(self.shares), list(self.shares.values()))[0]
        address = self.draw.choice(watched)
        covering = [(address >> self.bits - bits << self.bits - bits, bits) for bits in self.shares]
        known = [prefix for prefix in covering if prefix in self.routes]
        kind = self.draw.random()
        if kind < 0.4 and known:  # withdrawn
            prefix = self.draw.choice(known)
            del self.routes[prefix]
            return self.route_text(prefix, "")
        if kind < 0.6 and known:  # moved
            prefix = self.draw.choice(known)
        elif kind < 0.9:
            prefix = self.draw.choice(covering)
        else:
            prefix = self.inside(self.draw.choice(self.blocks), length)
        self.routes[prefix] = self.next_hop()
        return self.route_text(prefix, self.routes[prefix])


def write_file(path, lines):
    with open(path, "w", encoding="ascii") as file:
        file.writelines(line + "\n" for line in lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("folder", type=pathlib.Path, help="where the files go")
    parser.add_argument("--routes", type=int, default=120_000, help="routes of both families (120000)")
    parser.add_argument("--addresses", type=int, default=100_000, help="addresses to look up (100000)")
    parser.add_argument("--watched", type=int, default=1_000, help="addresses to watch (1000)")
    parser.add_argument("--events", type=int, default=10_000, help="changes of routes (10000)")
    parser.add_argument("--seed", type=int, default=1, help="what all is drawn by (1)")
    options = parser.parse_args()
    if not 0 < options.watched <= options.addresses:
        sys.exit(f"{parser.prog}: of {options.addresses} addresses, {options.watched} cannot be watched")

    draw = random.Random(options.seed)
    families = [Family(4, draw), Family(6, draw)]
    # Five routes in six are of the older family, and so are the addresses.
    for family, share in zip(families, (5 / 6, 1 / 6)):
        family.fill(round(options.routes * share))
    routes = [family.route_text(*route) for family in families for route in family.routes.items()]
    asked = [(family, address) for family, share in zip(families, (5 / 6, 1 / 6))
             for address in family.addresses(round(options.addresses * share))]
    draw.shuffle(routes)
    draw.shuffle(asked)
    watched = asked[:options.watched]
    watched_of = {family: [address for of, address in watched if of is family] for family in families}
    families = [family for family in families if watched_of[family]]

    options.folder.mkdir(parents=True, exist_ok=True)
    address_columns = "address IpGenAddr key,host IpGenPrefix"
    write_file(options.folder / "net.route.csv", ["prefix IpGenPrefix key,nextHop IpGenAddr", *routes])
    write_file(options.folder / "net.address.csv",
               [address_columns, *(family.address_text(address) for family, address in asked)])
    write_file(options.folder / "net.answer.csv", ["address IpGenAddr key,prefix IpGenPrefix,nextHop IpGenAddr"])
    write_file(options.folder / "watched.csv",
               [address_columns, *(family.address_text(address) for family, address in watched)])
    write_file(options.folder / "events.csv",
               (f"+,net::route,{family.event(watched_of[family])}"
                for family in draw.choices(families, k=options.events)))
    print(f"{len(routes)} routes, {len(asked)} addresses, {len(watched)} of them watched over {options.events} events")


if __name__ == "__main__":
    main()
