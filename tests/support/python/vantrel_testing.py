"""What the Python test suites share: the loopback guard, bounded waiting, and child processes whose output
lines are collected as they come. Each suite's conftest puts this folder on sys.path."""

import os
import signal
import subprocess
import threading
import time


def loopback_problem():
    """Why DDS is not held on loopback by CYCLONEDDS_URI, or None when it is."""
    uri = os.environ.get("CYCLONEDDS_URI", "")
    if not uri:
        return "CYCLONEDDS_URI is not set; DDS would use every network interface of this machine"
    path = uri[len("file://"):] if uri.startswith("file://") else uri
    if "," in path or "<" in path:
        return f"CYCLONEDDS_URI must name exactly one configuration file, not {uri!r}"
    try:
        with open(path, encoding="utf-8") as f:
            if "127.0.0.1" not in f.read():
                return f"the DDS configuration {path!r} does not bind to 127.0.0.1"
    except OSError:
        return f"CYCLONEDDS_URI names {path!r}, which cannot be read"
    return None


REFUSAL = ("REFUSING TO RUN TESTS: {}. Run them through ctest, or set "
           "CYCLONEDDS_URI=file://<source>/config/cyclonedds-loopback.xml.")


def wait_until(predicate, seconds=20.0):
    """Waits (generously: loaded machines) until predicate() is true; returns whether it became true."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if predicate():
            return True
        time.sleep(0.02)
    return predicate()


class Process:
    """A child whose stdout and stderr lines are collected as they come; stdin stays open for commands
    unless `stdin` is false."""

    def __init__(self, cmd, env=None, stdin=True):
        self.cmd = [str(c) for c in cmd]
        self.proc = subprocess.Popen(self.cmd, stdin=subprocess.PIPE if stdin else subprocess.DEVNULL,
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=env)
        self.lines = []
        self.errors = []
        self._threads = [threading.Thread(target=self._read, args=(self.proc.stdout, self.lines), daemon=True),
                         threading.Thread(target=self._read, args=(self.proc.stderr, self.errors), daemon=True)]
        for t in self._threads:
            t.start()

    @staticmethod
    def _read(stream, into):
        for line in stream:
            into.append(line.rstrip("\n"))

    def starting(self, prefix):
        return [line for line in list(self.lines) if line.startswith(prefix)]

    def matching(self, text):
        """The lines of either stream that contain `text`."""
        return [line for line in list(self.lines) + list(self.errors) if text in line]

    def wait_for(self, line, seconds=30.0):
        """Whether the line came within `seconds`; stops waiting early when the process ended."""
        wait_until(lambda: line in self.lines or self.proc.poll() is not None, seconds)
        if self.proc.poll() is not None:
            for t in self._threads:
                t.join(timeout=10)
        return line in self.lines

    def command(self, text):
        self.proc.stdin.write(text + "\n")
        self.proc.stdin.flush()

    def finish(self, seconds=30.0, interrupt=False):
        """Ends the program (end of input, or SIGINT with `interrupt`; a kill if it hangs) and returns its
        exit code."""
        if interrupt and self.proc.poll() is None:
            self.proc.send_signal(signal.SIGINT)
        if self.proc.stdin and not self.proc.stdin.closed:
            try:
                self.proc.stdin.close()
            except BrokenPipeError:
                pass
        try:
            self.proc.wait(timeout=seconds)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
        for t in self._threads:
            t.join(timeout=10)
        return self.proc.returncode

    def stop(self):
        """Interrupts the program as Ctrl-C would and returns its exit code."""
        return self.finish(interrupt=True)

    def report(self):
        return f"{' '.join(self.cmd)}\nstdout:\n" + "\n".join(self.lines) + "\nstderr:\n" + "\n".join(self.errors)
