"""bench.py BUILD NAME [ROUNDS]: measures and prints tables. NAME is down, up, small-down or small-up."""

import sys

import files
import systems

LARGE = files.Work("1 GiB", 1, 1024 * files.MEBIBYTE)
SMALL = files.Work("2,000 files of 16 KiB, one connection", 2000, 16 * 1024)

FILE_BENCHMARKS = {
    "down": (LARGE, False),
    "up": (LARGE, True),
    "small-down": (SMALL, False),
    "small-up": (SMALL, True),
}


def main(arguments):
    build, name = arguments[:2]
    rounds = int(arguments[2]) if len(arguments) > 2 else 5
    work, upload = FILE_BENCHMARKS[name]
    measured = [
        systems.OwnProgram("bare pattern", f"{build}/Benchmarks/BarePattern"),
        systems.OwnProgram("Osprey", f"{build}/Benchmarks/FileHosts"),
        systems.Nginx(),
        systems.Rsync(),
    ]
    columns = files.measure(measured, upload, work, rounds)
    title = f"{work.title}, {'upload' if upload else 'download'}, {rounds} rounds: median (least to most)"
    print(files.table(title, columns, work, work.count > 1), flush=True)


if __name__ == "__main__":
    main(sys.argv[1:])
