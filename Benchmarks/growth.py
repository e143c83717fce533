"""What twice the work takes, in instructions: the table of scripts/growth."""

import re
import subprocess

import tables

ROW = re.compile(r"^(\w+) +(\d+) +(\d+) +(\d+) +([\d.]+) +([\d.]+)$", re.MULTILINE)
AMONG = re.compile(r"takes (\d+) instructions among 100 connections, (\d+) among 10,000")


def run():
    """Returns the Tables."""
    done = subprocess.run(["scripts/growth"], stdout=subprocess.PIPE, check=True, text=True)
    rows = [
        [name, f"{int(work):,}", f"{int(once):,}", f"{int(twice):,}", ratio, exponent]
        for name, work, once, twice, ratio, exponent in ROW.findall(done.stdout)
    ]
    head = ["Work", "of it", "instructions", "of twice", "ratio", "exponent"]
    few, many = (int(count) for count in AMONG.search(done.stdout).groups())
    return [
        tables.Table("Twice the work", head, rows, []),
        tables.Table(
            "A small request",
            ["Connections", "instructions"],
            [["100", f"{few:,}"], ["10,000", f"{many:,}"]],
            [],
        ),
    ]
