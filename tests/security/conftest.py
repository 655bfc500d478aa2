"""What the security tests share: the loopback guard, the domain of this run, the key material made once by
`vantrel security setup`, and processes whose output lines are collected as they come."""

import json
import os
import signal
import subprocess
import threading
import time

import pytest

TOOL = os.environ.get("VANTREL_TOOL", "")
PEER = os.environ.get("VANTREL_SECURITY_PEER", "")
DOMAIN = os.environ.get("KELVA_TEST_DOMAIN", "")
MODULES = ("M_Alert", "M_Mount")

# The applications of the system under test: a service of both modules, a client of both (which may send
# commands and receive reports, never the reverse), and a bridge holding both sides of M_Alert (what a
# replaying tool needs).
APPS = {"mount-service": "M_Mount=service,M_Alert=service", "display": "M_Mount=client,M_Alert=client",
        "bridge": "M_Alert=service,M_Alert=client"}


def pytest_configure(config):
    uri = os.environ.get("CYCLONEDDS_URI", "")
    path = uri[len("file://"):] if uri.startswith("file://") else uri
    try:
        with open(path, encoding="utf-8") as f:
            loopback = "127.0.0.1" in f.read()
    except OSError:
        loopback = False
    if not loopback:
        raise pytest.UsageError("REFUSING TO RUN: CYCLONEDDS_URI must name the loopback configuration "
                                "(file://<source>/config/cyclonedds-loopback.xml); run through ctest")
    if not (TOOL and PEER and DOMAIN):
        raise pytest.UsageError("VANTREL_TOOL, VANTREL_SECURITY_PEER and KELVA_TEST_DOMAIN must be set "
                                "(ctest sets them; the domain comes from vantrel-with-domain)")


def environment(config=None):
    """This process's environment with KELVA_CONFIG set to `config`, or without it (an unsecured process)."""
    env = dict(os.environ)
    env.pop("KELVA_CONFIG", None)
    if config:
        env["KELVA_CONFIG"] = str(config)
    return env


def tool(*args, config=None, timeout=60):
    return subprocess.run([TOOL, *map(str, args)], capture_output=True, text=True, timeout=timeout,
                          env=environment(config))


def wait_until(predicate, seconds=20.0):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if predicate():
            return True
        time.sleep(0.05)
    return predicate()


class Process:
    """A child whose stdout lines are collected as they come; stdin stays open for commands."""

    def __init__(self, cmd, config=None, stdin=True):
        self.cmd = [str(c) for c in cmd]
        self.proc = subprocess.Popen(self.cmd, stdin=subprocess.PIPE if stdin else subprocess.DEVNULL,
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                     env=environment(config))
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

    def report(self):
        return f"{' '.join(self.cmd)}\nstdout:\n" + "\n".join(self.lines) + "\nstderr:\n" + "\n".join(self.errors)


def peer(side, config, marker="secured-exchange", modules=MODULES):
    return Process([PEER, side, DOMAIN, marker, *modules], config=config)


@pytest.fixture(scope="session")
def material(tmp_path_factory):
    """CA, governance, and per application identity, permissions and KELVA_CONFIG file."""
    directory = tmp_path_factory.mktemp("security")
    args = ["security", "setup", directory]
    for name, grants in APPS.items():
        args += ["--app", f"{name}:{grants}"]
    done = tool(*args)
    assert done.returncode == 0, done.stderr
    return directory


@pytest.fixture(scope="session")
def operations():
    """Every operation of the modules under test, from the catalogue: {"M_Alert.IService.CmdRaiseAlarm": {...}}."""
    out = {}
    for module in MODULES:
        done = tool("list", "--json", module)
        assert done.returncode == 0, done.stderr
        for line in done.stdout.splitlines():
            entry = json.loads(line)
            out[entry["operation"]] = entry
    assert out
    return out
