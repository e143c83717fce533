"""Live packets to many subscribers: a process that publishes and one that subscribes, both of one
system, in turn with those of the others."""

import json
import subprocess
from dataclasses import dataclass

import tables


@dataclass
class System:
    name: str  # in tables
    program_name: str
    flush: int = 0  # packets after which the publisher flushes; 0: never


OURS = System("Osprey", "Osprey")
FLUSHED = System("Osprey, flush", "Osprey", 1)
GROUPED = System("Osprey, flush every 500", "Osprey", 500)
OTHERS = [System("ZeroMQ", "ZeroMQ"), System("NNG", "NNG")]

RATE_SUBSCRIBERS = [1, 10, 100, 500]
FLOOD_SUBSCRIBERS = [1, 10, 500]
LATENCY_SUBSCRIBERS = [1, 10, 100]
MOST_FLUSHED = 10  # subscribers that are measured with a flush after each packet too
SECONDS = 1.5  # measured, of each run
RUN_SECONDS = 90  # at most, of each run


def run_once(build, system, subscribers, rate, *options):
    """One run's figures; its content was checked."""
    command = [f"{build}/Benchmarks/ChannelBenchmark", system.program_name, str(subscribers)]
    command += [str(rate), str(SECONDS), str(system.flush), *options]
    done = subprocess.run(command, stdout=subprocess.PIPE, check=True, timeout=RUN_SECONDS)
    return json.loads(done.stdout)


def interleave(build, rounds, systems, *scenario):
    """Returns for each system's name a list of values for each figure."""
    columns = {system.name: {} for system in systems}
    for _ in range(rounds):
        for system in systems:
            for key, value in run_once(build, system, *scenario).items():
                columns[system.name].setdefault(key, []).append(value)
    return columns


def throughput(name, title, subscriber_counts, rate, systems):
    """A benchmark of one rate; 0 is a flood."""

    def run(build, rounds):
        head = ["Subscribers", "System", "packets delivered/s", "Osprey : it", "of those put, %"]
        head += ["publisher CPU µs/delivery", "Osprey : it", "subscriber CPU µs/delivery"]
        head += ["Osprey : it", "KiB, publisher", "KiB, subscribers"]
        rows = []
        bars = []
        for count in subscriber_counts:
            columns = interleave(build, rounds, systems, count, rate)
            for system, column in columns.items():
                rows.append([f"{count:,}", system, *cells(column, columns[OURS.name])])
                bars.append(tables.bar(f"{system}, {count}", column["delivered"]))
        chart = tables.Chart(name, f"{title}, by subscribers", "packets delivered/s", bars)
        return [tables.Table(f"{title}, {rounds} rounds", head, rows, [chart])]

    return run


def cells(column, ours):
    return [
        tables.spread(column["delivered"]),
        tables.ratio(ours["delivered"], column["delivered"]),
        tables.median([100 * part for part in column["part"]], 1),
        tables.spread(column["publisher_us"], 2),
        tables.ratio(ours["publisher_us"], column["publisher_us"]),
        tables.spread(column["subscriber_us"], 2),
        tables.ratio(ours["subscriber_us"], column["subscriber_us"]),
        tables.median(column["publisher_kib"]),
        tables.median(column["subscriber_kib"]),
    ]


def latency(build, rounds):
    head = ["Subscribers", "System", "median ms", "99 % ms", "of those put, %"]
    rows = []
    bars = []
    for count in LATENCY_SUBSCRIBERS:
        systems = [OURS, FLUSHED, *OTHERS] if count <= MOST_FLUSHED else [OURS, *OTHERS]
        columns = interleave(build, rounds, systems, count, 1000, "latency")
        for system, column in columns.items():
            figures = [tables.spread(column[key], 2) for key in ("median_ms", "p99_ms")]
            part = tables.median([100 * part for part in column["part"]], 1)
            rows.append([f"{count:,}", system, *figures, part])
            if FLUSHED in systems and system != OURS.name:
                bars.append(tables.bar(f"{system}, {count}", column["median_ms"]))
    title = "1,000 packets/s, sent at once, by subscribers"
    chart = tables.Chart("latency", title, "median latency in ms", bars, 2)
    return [tables.Table(f"Latency at 1,000 packets/s, {rounds} rounds", head, rows, [chart])]
