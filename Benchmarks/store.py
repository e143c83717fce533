"""The packet store alone: what a put takes while others read."""

import json
import subprocess

import tables

READERS = [1, 8, 64]
PUTS = 200000


def run(build, rounds):
    """Returns the Table."""
    head = ["Readers", "put ns: median", "99 %", "locks held ns: median", "99 %", "allocations"]
    rows = []
    for readers in READERS:
        column = {}
        for _ in range(rounds):
            command = [f"{build}/Benchmarks/StoreBenchmark", str(readers), str(PUTS)]
            done = subprocess.run(command, stdout=subprocess.PIPE, check=True)
            for key, value in json.loads(done.stdout).items():
                column.setdefault(key, []).append(value)
        keys = ("put_ns", "put_p99_ns", "lock_ns", "lock_p99_ns", "allocations")
        rows.append([str(readers), *(tables.spread(column[key]) for key in keys)])
    title = f"The packet store, {PUTS:,} puts of 1,400 bytes after as many, {rounds} rounds"
    return tables.Table(title, head, rows, [])
