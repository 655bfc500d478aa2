"""The processes of the multi-host tests: alert-node (tests/network/alert_node.cpp) inside a host's namespace.

Each node gets a toolkit configuration of its own (KELVA_CONFIG) whose [network] names the vehicle LAN
profile, the host's interface and the other hosts' addresses, and runs without CYCLONEDDS_URI: inside the
namespaces DDS must use that profile, never the loopback one the gtest binaries are held to. Its stdout is
read line by line on a thread; every line ends in t=<ms> on the monotonic clock, which is the harness's
time.monotonic() as well (one kernel, no time namespaces).
"""
import os
import re
import subprocess
import threading
import time

LINE = re.compile(r"^(?P<body>.*) t=(?P<t>[0-9.]+)$")


def write_kelva_config(path, example, dds_configs, host, peers):
    """The toolkit configuration of one host: the documented example (config/kelva-vehicle.toml) with this
    host's values in its three [network] settings: the DDS profile file(s), its interface, the other hosts."""
    with open(example) as f:
        text = f.read()
    values = {"dds_config": "[%s]" % ", ".join('"%s"' % f for f in dds_configs),
              "interface": '"%s"' % host.interface,
              "peers": "[%s]" % ", ".join('"%s"' % p.address for p in peers)}
    for key, value in values.items():
        text, n = re.subn(r"(?m)^%s = .*$" % key, lambda _m, k=key, v=value: "%s = %s" % (k, v), text)
        if n != 1:
            raise ValueError("%s: expected one '%s = ...' line, found %d" % (example, key, n))
    with open(path, "w") as out:
        out.write("# One host of the multi-host tests: %s with this host's [network] values\n" % example + text)


class NodeGone(AssertionError):
    pass


class Node:
    def __init__(self, name, host, argv, env, workdir):
        self.name = name
        self.host = host
        self.lines = []  # (body, t in ms)
        self._cond = threading.Condition()
        self.stderr_path = os.path.join(workdir, name + ".stderr")
        self.launched = time.monotonic() * 1000.0
        with open(self.stderr_path, "w") as err:
            self.proc = subprocess.Popen(host.exec_args(argv), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         stderr=err, env=env, text=True, bufsize=1)
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        for raw in self.proc.stdout:
            m = LINE.match(raw.rstrip("\n"))
            entry = (m.group("body"), float(m.group("t"))) if m else (raw.rstrip("\n"), time.monotonic() * 1000.0)
            with self._cond:
                self.lines.append(entry)
                self._cond.notify_all()
        with self._cond:
            self._cond.notify_all()

    def send(self, command):
        self.proc.stdin.write(command + "\n")
        self.proc.stdin.flush()

    def stderr_tail(self, n=20):
        try:
            with open(self.stderr_path) as f:
                return "".join(f.readlines()[-n:])
        except OSError:
            return ""

    def wait_for(self, pattern, timeout, after=0):
        """The first line from index `after` on that matches `pattern` (a regex): (match, t, index).
        Fails when the time is up, or at once when the process ended without it."""
        regex = re.compile(pattern)
        deadline = time.monotonic() + timeout
        with self._cond:
            i = after
            while True:
                while i < len(self.lines):
                    body, t = self.lines[i]
                    m = regex.search(body)
                    if m:
                        return m, t, i
                    if body.startswith("error "):
                        raise NodeGone("%s on %s: %s\nstderr:\n%s" % (self.name, self.host.namespace, body,
                                                                       self.stderr_tail()))
                    i += 1
                left = deadline - time.monotonic()
                if self.proc.poll() is not None and not self._reader.is_alive():
                    raise NodeGone("%s ended (exit %s) before /%s/\nstderr:\n%s"
                                   % (self.name, self.proc.returncode, pattern, self.stderr_tail()))
                if left <= 0:
                    raise AssertionError("%s: no /%s/ within %.1f s; last lines: %s\nstderr:\n%s"
                                         % (self.name, pattern, timeout, self.lines[-5:], self.stderr_tail()))
                self._cond.wait(min(left, 0.2))

    def matching(self, pattern, after=0, before=None):
        """Every line from index `after` (to `before`) matching `pattern`: [(match, t)]."""
        regex = re.compile(pattern)
        with self._cond:
            lines = self.lines[after:before]
        return [(m, t) for m, t in ((regex.search(b), t) for b, t in lines) if m]

    def mark(self):
        """The index of the next line: for waits that concern only what comes later."""
        with self._cond:
            return len(self.lines)

    def stop(self, timeout=5):
        if self.proc.poll() is None:
            try:
                self.send("quit")
                self.proc.stdin.close()
            except OSError:
                pass
            try:
                self.proc.wait(timeout)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait(5)
        self._reader.join(5)
