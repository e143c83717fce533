"""bench.py BUILD [NAME...] [--rounds N] [--write [FOLDER]]: measures and prints tables."""

import argparse
import signal
import sys
import time

import channels
import document
import files
import growth
import idle
import measure
import stalls
import store
import systems


def file_benchmark(name, upload, work):
    def run(build, rounds):
        measured = [
            systems.OwnProgram("bare pattern", f"{build}/Benchmarks/BarePattern"),
            own(build),
            systems.Nginx(),
            systems.Vsftpd(),
            systems.Rsync(),
        ]
        return [files.run(name, measured, upload, work, rounds)]

    return run


def own(build):
    return systems.OwnProgram("Osprey", f"{build}/Benchmarks/FileHosts")


def servers(build):
    """Each with the kind of connection that it takes."""
    return [(own(build), "wxsp"), (systems.Nginx("nginx", idle.HELD + 100), "http")]


def stall_benchmark(build, rounds):
    program = f"{build}/Benchmarks/FileHosts"
    return [stalls.run(systems.OwnProgram("Osprey", program, "get-timed", "put-timed"), rounds)]


BENCHMARKS = {
    "growth": lambda build, rounds: growth.run(),
    "down": file_benchmark("down", False, files.LARGE),
    "up": file_benchmark("up", True, files.LARGE),
    "small-down": file_benchmark("small-down", False, files.SMALL),
    "small-up": file_benchmark("small-up", True, files.SMALL),
    "stalls": stall_benchmark,
    "channels": channels.throughput(
        "channels",
        "1,400-byte packets, 10,000/s",
        channels.RATE_SUBSCRIBERS,
        10000,
        [channels.OURS, *channels.OTHERS],
    ),
    "flood": channels.throughput(
        "flood",
        "1,400-byte packets, as fast as they are taken",
        channels.FLOOD_SUBSCRIBERS,
        0,
        [channels.OURS, channels.GROUPED, *channels.OTHERS],
    ),
    "latency": channels.latency,
    "idle": lambda build, rounds: [idle.idle(build, own(build))],
    "memory": lambda build, rounds: [idle.memory(build, servers(build), rounds)],
    "connections": lambda build, rounds: [idle.connections(build, servers(build), rounds)],
    "store": lambda build, rounds: [store.run(build, rounds)],
}


def main():
    parser = argparse.ArgumentParser(prog="bench")
    parser.add_argument("build")
    parser.add_argument("names", nargs="*", metavar="NAME")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--write", nargs="?", const="Docs", metavar="FOLDER")
    arguments = parser.parse_args()
    unknown = [name for name in arguments.names if name not in BENCHMARKS]
    if unknown:
        parser.error(f"no benchmark {unknown[0]}: {', '.join(BENCHMARKS)}")
    if arguments.write and arguments.names:
        parser.error("--write takes a whole run")
    if arguments.rounds < 1:
        parser.error("a median of no rounds")
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit(128 + number))
    results = {}
    for name in arguments.names or BENCHMARKS:
        begun = time.monotonic()
        results[name] = BENCHMARKS[name](arguments.build, arguments.rounds)
        print("\n".join(table.markdown() for table in results[name]), flush=True)
        print(f"{name}: {time.monotonic() - begun:.0f} s", file=sys.stderr)
    if arguments.write:
        document.write(arguments.write, results)


if __name__ == "__main__":
    try:
        main()
    finally:
        measure.end_all()
