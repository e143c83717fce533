"""Runs a server and a client as processes and accounts for both: wall time, processor time, memory,
system calls.

Processor time is the kernel's own account of a process and of every child that it has waited for
(wait4(2)). So is memory: the most that was resident at any moment in the largest of them. The
kernel counts in what stood in a process before its program did, so it is GNU time that starts it,
which is smaller than anything measured.
"""

import os
import re
import signal
import socket
import subprocess
import tempfile
import time
from dataclasses import dataclass

WAIT_SECONDS = 10.0

_running = set()  # Processes that nobody has waited for


@dataclass
class Account:
    """What a process has used until its end."""

    seconds: float = 0.0  # wall time
    cpu: float = 0.0  # user and system, seconds
    resident: int = 0  # KiB at the peak; not counted together with calls
    calls: int = 0  # system calls; counted only when asked for


class Process:
    """A command that runs. Its standard input is text, or stays open until it is stopped."""

    def __init__(self, command, text=None, count_calls=False, log=None, output=None, trace=None):
        """count_calls: in its account; trace: a file for a line with the time of each system call;
        log, output: files for standard error and output."""
        self._count_calls = count_calls
        self._report = tempfile.NamedTemporaryFile(prefix="report")
        if count_calls:
            before = ["strace", "-f", "-qq", "-c", "-U", "calls", "-o", self._report.name]
        elif trace is not None:
            before = ["strace", "-f", "-qq", "-ttt", "-e", "signal=none", "-o", trace]
        else:
            before = ["time", "--quiet", "--format", "%M", "--output", self._report.name]
        self._input = tempfile.TemporaryFile() if text is not None else None
        if self._input is not None:
            self._input.write(text.encode())
            self._input.seek(0)
        self._started = time.monotonic()
        self._child = subprocess.Popen(
            [*before, *command],
            stdin=self._input if self._input is not None else subprocess.PIPE,
            stdout=output if output is not None else subprocess.PIPE,
            stderr=log if log is not None else subprocess.DEVNULL,
            start_new_session=True,
        )
        _running.add(self)

    def read_line(self):
        return self._child.stdout.readline().decode().strip()

    def pid(self):
        """The process itself, below what accounts for it."""
        return children(self._child.pid)[0]

    def stop(self, with_signal):
        """Asks the process to end: by SIGTERM, once it has no children left, or by the end of its
        standard input."""
        if with_signal:
            wait_until(lambda: not children(self.pid()), "the end of a server's children")
            os.kill(self.pid(), signal.SIGTERM)
        else:
            self._child.stdin.close()

    def kill(self):
        """With all that it has started; there is no account of it."""
        _running.discard(self)
        os.killpg(self._child.pid, signal.SIGKILL)
        self._child.wait()

    def wait(self):
        """Waits for its end. Returns (exit status, Account)."""
        _, status, usage = os.wait4(self._child.pid, 0)
        _running.discard(self)
        seconds = time.monotonic() - self._started
        self._child.returncode = os.waitstatus_to_exitcode(status)  # nobody waits again
        if self._child.stdout is not None:
            self._child.stdout.close()
        account = Account(seconds, usage.ru_utime + usage.ru_stime)
        if self._count_calls:
            account.calls = count_calls(self._report.name)
        elif os.path.getsize(self._report.name) > 0:
            account.resident = last_number(self._report.name)
        self._report.close()
        return self._child.returncode, account


def end_all():
    """Kills what a benchmark that failed has left running."""
    for process in list(_running):
        process.kill()


def children(pid):
    with open(f"/proc/{pid}/task/{pid}/children") as file:
        return [int(child) for child in file.read().split()]


def last_number(path):
    with open(path) as file:
        return int(file.read().split()[-1])


def count_calls(path):
    """The calls in a table of `strace -c -U calls`."""
    with open(path) as table:
        return int(re.search(r"^\s*(\d+) total$", table.read(), re.MULTILINE).group(1))


def count_traced_calls(path, begun, ended):
    """The calls that began in a span of wall time, of a file that a Process was given as trace."""
    with open(path) as file:
        entries = [line.split(maxsplit=2) for line in file]
    return sum(
        begun <= float(moment) < ended and not what.startswith(("<...", "+++"))
        for _, moment, what in entries
    )


def cpu_seconds(pid):
    """Processor time that a running process has used: its clock (clock_getcpuclockid(3))."""
    return time.clock_gettime((~pid << 3) | 2)


def resident_kib(pid):
    with open(f"/proc/{pid}/status") as status:
        return int(re.search(r"^VmRSS:\s*(\d+) kB$", status.read(), re.MULTILINE).group(1))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_until(condition, what):
    deadline = time.monotonic() + WAIT_SECONDS
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError(f"waited in vain for {what}")
        time.sleep(0.005)


def wait_for_port(port):
    def listens():
        try:
            socket.create_connection(("127.0.0.1", port), 1).close()
            return True
        except OSError:
            return False

    wait_until(listens, f"port {port}")
