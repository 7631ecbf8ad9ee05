"""Runs programs that may do anything: within limits, and with everything that they start ended afterwards."""
import ctypes
import os
import pathlib
import resource
import select
import signal
import subprocess
import sys
import time

MOST_MEMORY = 8 << 30  # addresses; hundreds of threads have their stacks there
PR_SET_CHILD_SUBREAPER = 36


def adopt_orphans():
    """Makes this process the parent of whatever its children leave behind. Linux has that."""
    if ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "cannot adopt orphans")


def exit_when_told():
    """Makes a signal to end an exception, so that nothing is left behind."""
    signal.signal(signal.SIGTERM, lambda _number, _frame: sys.exit(1))


def set_limits():
    resource.setrlimit(resource.RLIMIT_AS, (MOST_MEMORY, MOST_MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def own_children():
    children = pathlib.Path("/proc/self/task/%d/children" % os.getpid()).read_text(encoding="ascii")
    return [int(child) for child in children.split()]


def end_children():
    """Ends this process's children, theirs, and so on. Only for a process that has no others."""
    while children := own_children():
        for child in children:
            try:
                os.kill(child, signal.SIGKILL)
                os.waitpid(child, 0)
            except (ProcessLookupError, ChildProcessError):
                pass


class Run:
    """A program that runs, and the lines that it writes."""

    def __init__(self, command, folder, environment):
        self.process = subprocess.Popen(
            command, cwd=folder, env={**os.environ, **environment}, preexec_fn=set_limits,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        self.rest = b""

    def lines(self, limit):
        """The lines that have come, as soon as there are any; [] after the limit, None when there are no more."""
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
        """The exit status; None when there is none within the limit."""
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
