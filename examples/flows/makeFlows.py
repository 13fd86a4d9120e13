#!/usr/bin/env python3
"""Makes the files of the flow pipeline in a folder:

events.csv       flows: sources inside of the ranges of a geoip file, destinations inside of routes; a few anywhere
net.route.csv    IPv4 routes, each to a neighbour or, where that cell is empty, to none
geo.range.csv    the ranges of the geoip file
net.flow.csv and the tables that the stages fill: their columns, without a row

The same file and arguments make the same files.
"""

import argparse
import itertools
import pathlib
import random
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path += [str(HERE.parent / "geoip"), str(HERE.parent / "routing")]
import makeRoutes  # noqa: E402
import makeTables  # noqa: E402

EMPTY = ["net.flow", "net.routed", "net.located", "net.country", "net.report"]
NEIGHBOURS = [f"AS{number}" for number in range(64496, 64512)]
NOWHERE = 0.03        # share of routes that lead to no neighbour
HOUR = 3_600_000      # milliseconds that the flows are spread over
BYTES = (8.0, 2.0)    # mean and deviation of the logarithm of a flow's bytes
WELL_KNOWN = 10       # how many hosts have far more flows than the others


class Routes(makeRoutes.Family):
    def next_hop(self):
        return "" if self.draw.random() < NOWHERE else self.draw.choice(NEIGHBOURS)


def draw_hosts(draw, hosts, count):
    """Hosts for flows, each the less often the further behind it stands."""
    weights = itertools.accumulate(1 / (rank + WELL_KNOWN) for rank in range(len(hosts)))
    return draw.choices(hosts, cum_weights=list(weights), k=count)


def draw_flows(draw, sources, destinations, count):
    logarithm, deviation = BYTES
    for number, (source, destination) in enumerate(zip(draw_hosts(draw, sources, count),
                                                       draw_hosts(draw, destinations, count))):
        size = 40 + int(draw.lognormvariate(logarithm, deviation))
        yield f"+,net::flow,{destination}/32,{source},{number * HOUR // count},{size}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("geoip", help="file of ranges, such as /usr/share/tor/geoip")
    parser.add_argument("folder", type=pathlib.Path, help="where the files go")
    parser.add_argument("--flows", type=int, default=1_000_000, help="flows (1000000)")
    parser.add_argument("--hosts", type=int, default=20_000, help="sources, and as many destinations (20000)")
    parser.add_argument("--routes", type=int, default=20_000, help="routes (20000)")
    parser.add_argument("--seed", type=int, default=1, help="what all is drawn by (1)")
    options = parser.parse_args()
    try:
        ranges = makeTables.read_ranges(options.geoip)
    except (OSError, ValueError) as error:
        sys.exit(f"{parser.prog}: {error}")

    draw = random.Random(options.seed)
    routes = Routes(4, draw)
    routes.fill(options.routes)
    destinations = [routes.text(address) for address in routes.addresses(options.hosts)]
    sources = [makeTables.dotted(address)
               for address in makeTables.draw_addresses(ranges, options.hosts, options.seed)]

    rows = {name: () for name in EMPTY}
    rows["net.route"] = (routes.route_text(*route) for route in routes.routes.items())
    rows["geo.range"] = (f"{makeTables.dotted(last)},{makeTables.dotted(first)},{country}"
                         for first, last, country in ranges)
    options.folder.mkdir(parents=True, exist_ok=True)
    for name, lines in rows.items():
        with open(HERE / "small" / f"{name}.csv", encoding="ascii") as file:
            columns = file.readline().rstrip()
        makeTables.write_table(options.folder / f"{name}.csv", columns, lines)
    makeRoutes.write_file(options.folder / "events.csv",
                          draw_flows(draw, sources, destinations, options.flows))
    print(f"{options.flows} flows, {len(routes.routes)} routes, {len(ranges)} ranges of addresses")


if __name__ == "__main__":
    main()
