"""What a benchmark hands over, as Markdown: tables, and the charts that go with them."""

import math
import statistics
from dataclasses import dataclass


@dataclass
class Bar:
    """One row of a chart: a figure with its spread."""

    label: str
    median: float
    least: float
    most: float


@dataclass
class Chart:
    name: str  # of its file, without extension
    title: str
    unit: str
    bars: list
    decimals: int = 0


@dataclass
class Table:
    title: str
    head: list
    rows: list
    charts: list

    def markdown(self):
        lines = [f"**{self.title}**", "", row(self.head), row(["---"] * len(self.head))]
        lines += [row(cells) for cells in self.rows]
        return "\n".join(lines) + "\n"


def row(cells):
    return "| " + " | ".join(cells) + " |"


def bar(label, samples):
    return Bar(label, statistics.median(samples), min(samples), max(samples))


def median(samples, decimals=0):
    return f"{statistics.median(samples):,.{decimals}f}"


def spread(samples, decimals=0):
    """median (least to most)"""
    values = (statistics.median(samples), min(samples), max(samples))
    middle, least, most = (f"{value:,.{decimals}f}" for value in values)
    return f"{middle} ({least} to {most})"


def ratio(ours, theirs):
    """The median of the rounds' ratios: what was measured one after the other is compared."""
    quotients = [our / their if their else math.inf for our, their in zip(ours, theirs)]
    return f"{statistics.median(quotients):.2f}"
