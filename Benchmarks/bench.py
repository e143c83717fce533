"""bench.py BUILD [NAME...] [--rounds N] [--write]: measures, prints tables. Without names: everything.

--write puts the tables and charts of a whole run into Docs/.
"""

import argparse

import channels
import files
import idle
import stalls
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
    return [(own(build), "wxsp"), (systems.Nginx("nginx"), "http")]


def stall_benchmark(build, rounds):
    program = f"{build}/Benchmarks/FileHosts"
    return [stalls.run(systems.OwnProgram("Osprey", program, "get-timed", "put-timed"), rounds)]


BENCHMARKS = {
    "down": file_benchmark("down", False, files.LARGE),
    "up": file_benchmark("up", True, files.LARGE),
    "small-down": file_benchmark("small-down", False, files.SMALL),
    "small-up": file_benchmark("small-up", True, files.SMALL),
    "stalls": stall_benchmark,
    "channels": channels.throughput(
        "channels", "1,400-byte packets, 10,000/s", channels.RATE_SUBSCRIBERS, 10000
    ),
    "flood": channels.throughput(
        "flood", "1,400-byte packets, as fast as they are taken", channels.FLOOD_SUBSCRIBERS, 0
    ),
    "latency": channels.latency,
    "idle": lambda build, rounds: [idle.idle(build, own(build))],
    "memory": lambda build, rounds: [idle.memory(build, servers(build), rounds)],
    "connections": lambda build, rounds: [idle.connections(build, servers(build), rounds)],
}


def main():
    parser = argparse.ArgumentParser(prog="bench")
    parser.add_argument("build")
    parser.add_argument("names", nargs="*", metavar="NAME", help=", ".join(BENCHMARKS))
    parser.add_argument("--rounds", type=int, default=5)
    arguments = parser.parse_args()
    for name in arguments.names or BENCHMARKS:
        for table in BENCHMARKS[name](arguments.build, arguments.rounds):
            print(table.markdown(), flush=True)


if __name__ == "__main__":
    main()
