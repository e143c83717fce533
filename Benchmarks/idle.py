"""A server that has nothing to do, and connections that come and go."""

import os
import tempfile
import time
from contextlib import contextmanager

import tables
from measure import Process, count_traced_calls, cpu_seconds, resident_kib

WINDOW = 10.0  # seconds
SUBSCRIBERS = 100
HELD = 2000  # connections that do nothing
OPENED = 5000  # connections in a round, one after another
SETTLE = 1.0  # seconds, for what the opening of connections has left to do


@contextmanager
def serving(system, trace=None):
    """A server of an empty folder: its Process and its port."""
    with tempfile.TemporaryDirectory(dir="/dev/shm") as place:
        folder = os.path.join(place, "files")
        work = os.path.join(place, "work")
        os.mkdir(folder)
        os.mkdir(work)
        server, port = system.serve(folder, work, trace=trace)
        try:
            yield server, port
        finally:
            server.stop(system.stops_by_signal)
            server.wait()


@contextmanager
def connected(build, kind, port, count):
    """So many connections that do nothing more."""
    client = Process([f"{build}/Benchmarks/Connections", kind, "hold", str(port), str(count)])
    try:
        if client.read_line() != "open":
            raise ConnectionError(f"{count} connections are not to be had")
        time.sleep(SETTLE)
        yield
    finally:
        client.stop(False)
        client.wait()


def calls_per_second(build, system, subscribers):
    with tempfile.NamedTemporaryFile("r") as trace, serving(system, trace.name) as (_, port):
        with connected(build, "channel", port, subscribers):
            begun = time.time()
            time.sleep(WINDOW)
            ended = time.time()
        return count_traced_calls(trace.name, begun, ended) / (ended - begun)


def cpu_percent(build, system, subscribers):
    with serving(system) as (server, port), connected(build, "channel", port, subscribers):
        before = cpu_seconds(server.pid())
        time.sleep(WINDOW)
        return 100 * (cpu_seconds(server.pid()) - before) / WINDOW


def idle(build, system):
    """Returns the Table of a server at rest."""
    rows = []
    for count in (0, SUBSCRIBERS):
        rows.append(
            [
                f"{count} subscribers of a silent channel" if count else "no connection",
                f"{calls_per_second(build, system, count):,.1f}",
                f"{cpu_percent(build, system, count):.2f}",
            ]
        )
    title = f"Idle server, {WINDOW:.0f} s"
    return tables.Table(title, ["With", "system calls/s", "% of a core"], rows, [])


def memory(build, systems, rounds):
    """systems: (System, kind of connection). Returns the Table."""
    columns = {system.name: ([], []) for system, _ in systems}
    for _ in range(rounds):
        for system, kind in systems:
            with serving(system) as (server, port):
                time.sleep(SETTLE)
                empty = resident_kib(server.pid())
                with connected(build, kind, port, HELD):
                    each = (resident_kib(server.pid()) - empty) / HELD
            columns[system.name][0].append(empty)
            columns[system.name][1].append(each)
    head = ["Server", "resident KiB without a connection", "more for each idle connection, KiB"]
    rows = [
        [name, tables.spread(empty), tables.spread(each, 2)]
        for name, (empty, each) in columns.items()
    ]
    return tables.Table(f"Memory with {HELD:,} idle connections, {rounds} rounds", head, rows, [])


def connections(build, systems, rounds):
    """systems: (System, kind of connection). Returns the Table."""
    rates = {system.name: [] for system, _ in systems}
    cpu = {system.name: [] for system, _ in systems}
    for _ in range(rounds):
        for system, kind in systems:
            with serving(system) as (server, port):
                before = cpu_seconds(server.pid())
                command = [f"{build}/Benchmarks/Connections", kind, "rate", str(port), str(OPENED)]
                client = Process(command)
                rates[system.name].append(float(client.read_line()))
                client.wait()
                cpu[system.name].append(1e6 * (cpu_seconds(server.pid()) - before) / OPENED)
    ours = systems[0][0].name
    head = ["Server", "connections/s", f"{ours} : it", "server CPU µs/connection", f"{ours} : it"]
    rows = [
        [
            name,
            tables.spread(rates[name]),
            tables.ratio(rates[ours], rates[name]),
            tables.spread(cpu[name], 1),
            tables.ratio(cpu[ours], cpu[name]),
        ]
        for name in rates
    ]
    title = f"{OPENED:,} connections, one after another"
    bars = [tables.bar(*item) for item in rates.items()]
    chart = tables.Chart("connections", title, "connections/s", bars)
    return tables.Table(f"{title}, {rounds} rounds", head, rows, [chart])
