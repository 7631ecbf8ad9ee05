"""Runs programs within limits, and ends everything that they started."""
import ctypes
import os
import pathlib
import resource
import select
import signal
import subprocess
import sys
import time

MOST_MEMORY = 8 << 30  # of address space, which hundreds of thread stacks need
PR_SET_CHILD_SUBREAPER = 36


def adopt_orphans():
    """Makes this process the parent of processes that its children leave behind. Linux only."""
    if ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "cannot adopt orphans")


def exit_when_told():
    """Turns a termination signal into an exception, so that no process is left behind."""
    signal.signal(signal.SIGTERM, lambda _number, _frame: sys.exit(1))


def set_limits():
    resource.setrlimit(resource.RLIMIT_AS, (MOST_MEMORY, MOST_MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def own_children():
    children = pathlib.Path("/proc/self/task/%d/children" % os.getpid()).read_text(encoding="ascii")
    return [int(child) for child in children.split()]


def end_children():
    """Ends all descendants of this process. Only for a process without other children."""
    while children := own_children():
        for child in children:
            try:
                os.kill(child, signal.SIGKILL)
                os.waitpid(child, 0)
            except (ProcessLookupError, ChildProcessError):
                pass


class Run:
    """A running program and the lines that it writes."""

    def __init__(self, command, folder, environment):
        self.process = subprocess.Popen(
            command, cwd=folder, env={**os.environ, **environment}, preexec_fn=set_limits,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        self.rest = b""

    def lines(self, limit):
        """The next lines, as soon as there are any; [] after the timeout, None at the end."""
        ready, _, _ = select.select([self.process.stdout], [], [], max(0.0, limit))
        if not ready:
            return []
        data = os.read(self.process.stdout.fileno(), 1 << 16)
        if not data:
            return None
        lines = (self.rest + data).split(b"\n")
        self.rest = lines.pop()[-4096:]
        return [line.decode(errors="replace") for line in lines]

    def wait(self, limit):
        """The exit status; None after the timeout."""
        try:
            return self.process.wait(max(0.01, limit))
        except subprocess.TimeoutExpired:
            return None

    def end(self):
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()
        self.process.stdout.close()
        end_children()


def now():
    return time.monotonic()
