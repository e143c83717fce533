"""Files over loopback: one large one each way, and many small ones on one connection."""

import filecmp
import os
import shutil
import tempfile
from contextlib import contextmanager
from dataclasses import dataclass, field, replace

import tables
from measure import Process

MEBIBYTE = 1024 * 1024
OURS = "Osprey"


@dataclass
class Work:
    """Files to be moved; their names are the same on both sides."""

    title: str
    count: int
    size: int

    def names(self):
        return [f"f{i:05d}" for i in range(self.count)]

    def units(self):
        """What figures are given by: MiB of one file, else files."""
        return self.size / MEBIBYTE if self.count == 1 else self.count

    def part(self, units):
        if self.count == 1:
            return replace(self, size=units * MEBIBYTE)
        return replace(self, count=units)


LARGE = Work("1 GiB", 1, 1024 * MEBIBYTE)
SMALL = Work("2,000 files of 16 KiB, one connection", 2000, 16 * 1024)
COUNTED = (50, 150)  # units in the two runs whose difference says what a further one calls


@dataclass
class Column:
    """The rounds of one system."""

    clients: list = field(default_factory=list)  # Accounts
    servers: list = field(default_factory=list)
    client_calls: float = 0  # a unit
    server_calls: float = 0

    def rates(self, units):
        return [units / client.seconds for client in self.clients]

    def cpu(self, units):
        """Milliseconds a unit, both sides."""
        return [1000 * (c.cpu + s.cpu) / units for c, s in zip(self.clients, self.servers)]


class Failed(Exception):
    pass


@contextmanager
def made_files(work):
    """A folder in memory with content that compresses badly and differs from file to file."""
    folder = tempfile.mkdtemp(dir="/dev/shm")
    try:
        seed = os.urandom(min(work.size, MEBIBYTE))
        for number, name in enumerate(work.names()):
            with open(os.path.join(folder, name), "wb") as file:
                left = work.size
                while left > 0:
                    part = seed[: min(left, len(seed))]
                    file.write(number.to_bytes(8, "little")[: len(part)] + part[8:])
                    left -= len(part)
        yield folder
    finally:
        shutil.rmtree(folder)


def run_once(system, upload, work, source, count_calls=False, output=None):
    """Moves the files of source once; what the client prints goes to the file output. Returns
    (client's Account, server's Account)."""
    with tempfile.TemporaryDirectory(dir="/dev/shm") as place:
        target = os.path.join(place, "target")
        own = os.path.join(place, "own")
        os.mkdir(target)
        os.mkdir(own)
        server, port = system.serve(target if upload else source, own, count_calls)
        make = system.put if upload else system.get
        command, text = make(port, source if upload else target, work.names())
        with open(os.path.join(own, "client.log"), "w+") as log:
            status, client_account = Process(command, text, count_calls, log, output).wait()
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
    """Interleaved rounds, after one that warms up."""
    columns = {system.name: Column() for system in systems}
    with made_files(work) as source:
        for number in range(rounds + 1):
            for system in systems:
                client, server = run_once(system, upload, work, source)
                if number > 0:
                    columns[system.name].clients.append(client)
                    columns[system.name].servers.append(server)
    return columns


def count_calls(systems, upload, work, columns):
    """System calls for a further unit: those of a longer run less those of a shorter one."""
    for sign, units in zip((-1, 1), COUNTED):
        part = work.part(units)
        with made_files(part) as source:
            for system in systems:
                client, server = run_once(system, upload, part, source, count_calls=True)
                share = sign / (COUNTED[1] - COUNTED[0])
                columns[system.name].client_calls += share * client.calls
                columns[system.name].server_calls += share * server.calls


def run(name, systems, upload, work, rounds):
    """Returns the Table of a benchmark."""
    columns = measure(systems, upload, work, rounds)
    count_calls(systems, upload, work, columns)
    unit = "MiB" if work.count == 1 else "file"
    title = f"{work.title}, {'upload' if upload else 'download'}"
    rates = {system: column.rates(work.units()) for system, column in columns.items()}
    cpu = {system: column.cpu(work.units()) for system, column in columns.items()}
    head = ["System", f"{unit}s/s" if unit == "file" else "MiB/s", f"{OURS} : it", f"CPU ms/{unit}"]
    head += [f"{OURS} : it", "calls, client", "calls, server", "KiB, client", "KiB, server"]
    rows = [
        [
            system,
            tables.spread(rates[system]),
            tables.ratio(rates[OURS], rates[system]),
            tables.spread(cpu[system], 3),
            tables.ratio(cpu[OURS], cpu[system]),
            f"{column.client_calls:,.1f}",
            f"{column.server_calls:,.1f}",
            tables.median([account.resident for account in column.clients]),
            tables.median([account.resident for account in column.servers]),
        ]
        for system, column in columns.items()
    ]
    chart = tables.Chart(name, title, head[1], [tables.bar(*item) for item in rates.items()])
    return tables.Table(f"{title}, {rounds} rounds", head, rows, [chart])
