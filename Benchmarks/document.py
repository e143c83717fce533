"""Docs/Benchmarks.md and its charts: the template with the tables of a run."""

import os
import platform
import re
import subprocess

import chart

TEMPLATE = os.path.join(os.path.dirname(__file__), "Benchmarks.template")
PACKAGES = ["nginx", "curl", "vsftpd", "lftp", "rsync", "libzmq5", "libnng1"]


def write(folder, results):
    """results: the tables of each benchmark by its name. Charts go into folder/Benchmarks."""
    charts = os.path.join(folder, "Benchmarks")
    os.makedirs(charts, exist_ok=True)
    parts = {"machine": machine()}
    for name, tables in results.items():
        parts[name] = "\n".join(section(table) for table in tables)
        for drawn in (drawn for table in tables for drawn in table.charts):
            with open(os.path.join(charts, drawn.name + ".svg"), "w") as file:
                file.write(chart.svg(drawn))
    with open(TEMPLATE) as file:
        text = re.sub(r"(?m)^@([a-z-]+)\n", lambda match: parts[match[1]], file.read())
    with open(os.path.join(folder, "Benchmarks.md"), "w") as file:
        file.write(text)


def section(table):
    images = [f"\n![{drawn.title}](Benchmarks/{drawn.name}.svg)\n" for drawn in table.charts]
    return table.markdown() + "".join(images)


def machine():
    with open("/proc/cpuinfo") as file:
        models = re.findall(r"^model name\s*: (.*)$", file.read(), re.MULTILINE)
    model = f" ({models[0]})" if models else ""
    kernel = ".".join(platform.release().split(".")[:2])
    with open("/proc/sys/net/ipv4/tcp_congestion_control") as file:
        control = file.read().strip()
    versions = ", ".join(f"{package} {version(package)}" for package in PACKAGES)
    return f"Linux {kernel}, {os.cpu_count()} processors{model}, TCP with {control}; {versions}.\n"


def version(package):
    """As Debian numbers it, without its own revision."""
    command = ["dpkg-query", "-W", "-f=${Version}", package]
    text = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout
    return re.split("[-+]", text)[0]
