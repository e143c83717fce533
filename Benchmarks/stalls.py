"""Single files around the sizes at which something changes: none may wait for a timer of TCP."""

import os
import tempfile

import files
import tables

SIZES = [0, 1, 100, 511, 512, 1000, 1024, 1025, 1460, 2048, 4096, 8192, 16384]
SIZES += [32767, 32768, 32769, 49152, 65536]
FILES = 20  # one after another on a connection
STALL_MS = 40  # the shortest delayed acknowledgement


def times(system, upload, size, rounds):
    """Milliseconds of each file; its system prints them."""
    work = files.Work("", FILES, size)
    samples = []
    with files.made_files(work) as source:
        for _ in range(rounds):
            with tempfile.TemporaryFile("w+") as output:
                files.run_once(system, upload, work, source, output=output)
                output.seek(0)
                samples += [float(line) for line in output]
    return samples


def run(system, rounds):
    """Returns the Table."""
    head = ["Bytes", "download ms: median", "slowest", "upload ms: median", "slowest"]
    rows = []
    slowest = []
    for size in SIZES:
        cells = [f"{size:,}"]
        for upload in (False, True):
            samples = times(system, upload, size, rounds)
            slowest.append(max(samples))
            cells += [tables.median(samples, 3), f"{max(samples):.3f}"]
        rows.append(cells)
    count = FILES * rounds
    over = sum(value >= STALL_MS for value in slowest)
    rows.append([f"{STALL_MS} ms or more", "", "", "", f"{over} of {len(slowest)}"])
    return tables.Table(f"Single files, {count} of each size, {FILES} a connection", head, rows, [])
