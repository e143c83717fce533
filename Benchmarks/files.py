"""Files over loopback: one large one each way, and many small ones on one connection."""

import filecmp
import os
import shutil
import statistics
import tempfile
from dataclasses import dataclass, field

from measure import Process

MEBIBYTE = 1024 * 1024


@dataclass
class Work:
    """Files to be moved; their names are the same on both sides."""

    title: str
    count: int
    size: int

    def names(self):
        return [f"f{i:05d}" for i in range(self.count)]

    def mebibytes(self):
        return self.count * self.size / MEBIBYTE


@dataclass
class Column:
    """The rounds of one system."""

    seconds: list = field(default_factory=list)
    client_cpu: list = field(default_factory=list)
    server_cpu: list = field(default_factory=list)
    client_calls: int = 0  # of one round of its own
    server_calls: int = 0

    def cpu(self):
        return [client + server for client, server in zip(self.client_cpu, self.server_cpu)]


class Failed(Exception):
    pass


def make_files(folder, work):
    """Content that compresses badly and differs from file to file."""
    seed = os.urandom(min(work.size, MEBIBYTE))
    for number, name in enumerate(work.names()):
        with open(os.path.join(folder, name), "wb") as file:
            left = work.size
            while left > 0:
                part = seed[: min(left, len(seed))]
                file.write(number.to_bytes(8, "little")[: len(part)] + part[8:])
                left -= len(part)


def run_once(system, upload, work, source, count_calls=False):
    """Moves the files of source once. Returns (client's Account, server's Account)."""
    with tempfile.TemporaryDirectory(dir="/dev/shm") as place:
        target = os.path.join(place, "target")
        own = os.path.join(place, "own")
        os.mkdir(target)
        os.mkdir(own)
        server, port = system.serve(target if upload else source, own, count_calls)
        make = system.put if upload else system.get
        command, text = make(port, source if upload else target, work.names())
        with open(os.path.join(own, "client.log"), "w+") as log:
            status, client_account = Process(command, text, count_calls, log).wait()
            server.stop(system.stops_by_signal)
            _, server_account = server.wait()
            if status != 0:
                log.seek(0)
                raise Failed(f"{system.name}: exit code {status}: {log.read()}")
        for name in work.names():
            if not filecmp.cmp(os.path.join(source, name), os.path.join(target, name), False):
                raise Failed(f"{system.name}: {name} differs")
        return client_account, server_account


def measure(systems, upload, work, rounds):
    """Interleaved rounds; then one more of each system in which system calls are counted."""
    columns = {system.name: Column() for system in systems}
    source = tempfile.mkdtemp(dir="/dev/shm")
    try:
        os.chmod(source, 0o755)
        make_files(source, work)
        for system in systems:  # a round that warms up
            run_once(system, upload, work, source)
        for _ in range(rounds):
            for system in systems:
                client, server = run_once(system, upload, work, source)
                column = columns[system.name]
                column.seconds.append(client.seconds)
                column.client_cpu.append(client.cpu)
                column.server_cpu.append(server.cpu)
        for system in systems:
            client, server = run_once(system, upload, work, source, count_calls=True)
            columns[system.name].client_calls = client.calls
            columns[system.name].server_calls = server.calls
    finally:
        shutil.rmtree(source)
    return columns


def spread(samples, decimals):
    """median (least to most)"""
    values = (statistics.median(samples), min(samples), max(samples))
    median, least, most = (f"{value:,.{decimals}f}" for value in values)
    return f"{median} ({least} to {most})"


def table(title, columns, work, per_file):
    """Rows of a Markdown table."""
    unit = "files" if per_file else "MiB"
    amount = work.count if per_file else work.mebibytes()
    rows = [
        f"**{title}**",
        "",
        f"| System | {unit}/s | CPU ms/{unit.rstrip('s')}, both sides | calls/{unit.rstrip('s')}, "
        "client | server |",
        "|---|---|---|---|---|",
    ]
    for name, column in columns.items():
        rows.append(
            f"| {name} | {spread([amount / s for s in column.seconds], 0)} "
            f"| {spread([1000 * s / amount for s in column.cpu()], 3)} "
            f"| {column.client_calls / amount:,.1f} | {column.server_calls / amount:,.1f} |"
        )
    return "\n".join(rows) + "\n"
