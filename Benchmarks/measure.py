"""Runs a server and a client as processes and accounts for both: wall time, processor time, system
calls.

Processor time is the kernel's own account of a process and of every child that it has waited for
(wait4(2)).
"""

import os
import re
import signal
import socket
import subprocess
import tempfile
import time
from dataclasses import dataclass

START_SECONDS = 10.0
END_SECONDS = 30.0


@dataclass
class Account:
    """What a process has used until its end."""

    seconds: float = 0.0  # wall time
    cpu: float = 0.0  # user and system, seconds
    calls: int = 0  # system calls; counted only when asked for


class Process:
    """A command that runs. Its standard input is fed from text, or stays open until it is stopped."""

    def __init__(self, command, text=None, count_calls=False, log=None):
        self._calls = None
        if count_calls:
            self._calls = tempfile.NamedTemporaryFile(prefix="calls")
            command = ["strace", "-f", "-qq", "-c", "-U", "calls", "-o", self._calls.name, *command]
        self._input = tempfile.TemporaryFile() if text is not None else None
        if self._input is not None:
            self._input.write(text.encode())
            self._input.seek(0)
        self._started = time.monotonic()
        self._child = subprocess.Popen(
            command,
            stdin=self._input if self._input is not None else subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=log if log is not None else subprocess.DEVNULL,
        )

    def read_line(self):
        return self._child.stdout.readline().decode().strip()

    def traced_pid(self):
        """The process itself, also below strace."""
        if self._calls is None:
            return self._child.pid
        with open(f"/proc/{self._child.pid}/task/{self._child.pid}/children") as children:
            return int(children.read().split()[0])

    def stop(self, with_signal):
        """Asks the process to end: by SIGTERM, or by the end of its standard input."""
        if with_signal:
            os.kill(self.traced_pid(), signal.SIGTERM)
        else:
            self._child.stdin.close()

    def wait(self):
        """Waits for its end. Returns (exit status, Account)."""
        _, status, usage = os.wait4(self._child.pid, 0)
        seconds = time.monotonic() - self._started
        self._child.returncode = os.waitstatus_to_exitcode(status)  # nobody waits again
        self._child.stdout.close()
        account = Account(seconds, usage.ru_utime + usage.ru_stime)
        if self._calls is not None:
            account.calls = count_calls(self._calls.name)
            self._calls.close()
        return self._child.returncode, account


def count_calls(path):
    """The calls in a table of `strace -c -U calls`."""
    with open(path) as table:
        return int(re.search(r"^\s*(\d+) total$", table.read(), re.MULTILINE).group(1))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for_port(port):
    deadline = time.monotonic() + START_SECONDS
    while True:
        try:
            socket.create_connection(("127.0.0.1", port), 1).close()
            return
        except OSError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.02)
