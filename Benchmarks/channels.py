"""Live packets to many subscribers: a process that publishes and one that subscribes, both of one
system, in turn with those of the others."""

import json
import subprocess

import tables

SYSTEMS = ["Osprey", "ZeroMQ", "NNG"]
OURS = SYSTEMS[0]
RATE_SUBSCRIBERS = [1, 10, 100, 500]
FLOOD_SUBSCRIBERS = [1, 10, 500]
POLLED_SUBSCRIBERS = [1, 10, 100]
FLUSHED_SUBSCRIBERS = [1, 10]
SECONDS = 1.5
RUN_SECONDS = 90


def run_once(build, system, subscribers, rate, *options):
    """One run's figures; its content was checked."""
    command = [f"{build}/Benchmarks/ChannelBenchmark", system, str(subscribers), str(rate)]
    command += [str(SECONDS), *options]
    done = subprocess.run(command, stdout=subprocess.PIPE, check=True, timeout=RUN_SECONDS)
    return json.loads(done.stdout)


def interleave(build, rounds, systems, *scenario):
    """Returns for each system a list of values for each figure."""
    columns = {system: {} for system in systems}
    for _ in range(rounds):
        for system in systems:
            for key, value in run_once(build, system, *scenario).items():
                columns[system].setdefault(key, []).append(value)
    return columns


def throughput(name, title, subscriber_counts, rate):
    """A benchmark of one rate; 0 is a flood."""

    def run(build, rounds):
        head = ["Subscribers", "System", "packets delivered/s", f"{OURS} : it", "of those put, %"]
        head += ["publisher CPU µs/delivery", f"{OURS} : it", "subscriber CPU µs/delivery"]
        head += [f"{OURS} : it", "KiB, publisher", "KiB, subscribers"]
        rows = []
        bars = []
        for count in subscriber_counts:
            columns = interleave(build, rounds, SYSTEMS, count, rate)
            rows += [cells(count, system, columns) for system in SYSTEMS]
            bars += [tables.bar(f"{s}, {count}", columns[s]["delivered"]) for s in SYSTEMS]
        chart = tables.Chart(name, f"{title}, by subscribers", "packets delivered/s", bars)
        return [tables.Table(f"{title}, {rounds} rounds", head, rows, [chart])]

    return run


def cells(count, system, columns):
    own = columns[system]
    ours = columns[OURS]
    return [
        f"{count:,}",
        system,
        tables.spread(own["delivered"]),
        tables.ratio(ours["delivered"], own["delivered"]),
        tables.median([100 * part for part in own["part"]], 1),
        tables.spread(own["publisher_us"], 2),
        tables.ratio(ours["publisher_us"], own["publisher_us"]),
        tables.spread(own["subscriber_us"], 2),
        tables.ratio(ours["subscriber_us"], own["subscriber_us"]),
        tables.median(own["publisher_kib"]),
        tables.median(own["subscriber_kib"]),
    ]


def latency(build, rounds):
    head = ["Subscribers", "System", "median ms", "99 % ms", "of those put, %"]
    rows = []
    bars = []

    def measure(count, systems, label, *options):
        columns = interleave(build, rounds, systems, count, 1000, "latency", *options)
        for system in systems:
            own = columns[system]
            figures = [tables.spread(own["median_ms"], 2), tables.spread(own["p99_ms"], 2)]
            part = tables.median([100 * part for part in own["part"]], 1)
            rows.append([f"{count:,}", system + label, *figures, part])
            bars.append(tables.bar(f"{system}{label}, {count}", own["median_ms"]))

    for count in POLLED_SUBSCRIBERS:
        measure(count, SYSTEMS, "")
        if count in FLUSHED_SUBSCRIBERS:
            measure(count, [OURS], " with flush", "flush")
    chart = tables.Chart("latency", "1,000 packets/s, by subscribers", "median latency in ms", bars, 2)
    return [tables.Table(f"Latency at 1,000 packets/s, {rounds} rounds", head, rows, [chart])]
