"""alert_node.py inside a host's namespace, its output read as it comes (docs/network.md)."""
import os
import re
import subprocess
import sys
import threading
import time

NODE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "alert_node.py")
LINE = re.compile(r"^(?P<body>.*) t=(?P<t>[0-9.]+)$")
WATCH = re.compile(r"^watch (\w+) (\d+) (.*)$")
MATCHED = re.compile(r"(Publication|Subscription) matched: status\.current_count\(\)==(\d+) "
                     r"\(VendorData::M_Alert::(\w+)::(\w+)\)")


def write_kelva_config(path, example, dds_configs, host, peers):
    with open(example) as f:
        text = f.read()
    values = {"level": '"debug"',  # the toolkit's matching lines
              "dds_config": "[%s]" % ", ".join('"%s"' % f for f in dds_configs),
              "interface": '"%s"' % host.interface,
              "peers": "[%s]" % ", ".join('"%s"' % p.address for p in peers)}
    for key, value in values.items():
        text, n = re.subn(r"(?m)^%s = .*$" % key, lambda _m, k=key, v=value: "%s = %s" % (k, v), text)
        if n != 1:
            raise ValueError("%s: expected one '%s = ...' line, found %d" % (example, key, n))
    with open(path, "w") as out:
        out.write(text)


class Node:
    def __init__(self, name, host, args, toml):
        self.name = name
        self.lines = []  # (body, t in ms)
        self.log = []
        self.watches, self.matched = {}, {}  # ("Publication"|"Subscription", "IService.Op") -> peers
        self.started, self.ready, self.discovered, self.missing = None, False, False, None
        self._cond = threading.Condition()
        self.launched = time.monotonic() * 1000.0
        env = dict(os.environ, KELVA_CONFIG=toml, VANTREL_NODE_DEADLINE_S="150")
        env.pop("CYCLONEDDS_URI", None)
        self.proc = subprocess.Popen(host.exec_args([sys.executable, NODE] + args), stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env, text=True, bufsize=1)
        self._readers = [threading.Thread(target=self._read, args=(s,), daemon=True)
                         for s in (self.proc.stdout, self.proc.stderr)]
        for reader in self._readers:
            reader.start()

    def _read(self, stream):
        for raw in stream:
            now = time.monotonic() * 1000.0
            with self._cond:
                if stream is self.proc.stderr:
                    self.log.append(raw.rstrip("\n"))
                    m = MATCHED.search(raw)
                    if m:
                        self.matched[(m.group(1), "%s.%s" % m.group(3, 4))] = int(m.group(2))
                        self._judge(now)
                else:
                    m = LINE.match(raw.rstrip("\n"))
                    body, t = (m.group("body"), float(m.group("t"))) if m else (raw.rstrip("\n"), now)
                    self.lines.append((body, t))
                    watch = WATCH.match(body)
                    for endpoint in watch.group(3).split() if watch else []:
                        self.watches[(watch.group(1), endpoint)] = int(watch.group(2))
                    self.started = t if body == "start" else self.started
                    self.ready = self.ready or body == "ready"
                    self._judge(t)
                self._cond.notify_all()
        with self._cond:
            self._cond.notify_all()

    def _judge(self, t):
        if not self.ready:
            return  # its watches are not all said yet
        missing = max(0, max(n - self.matched.get(key, 0) for key, n in self.watches.items()))
        if missing != self.missing:
            self.lines.append(("match missing=%d" % missing, t))
            if missing == 0 and not self.discovered:
                self.lines.append(("discovered %d" % (t - self.started), t))
                self.discovered = True
            self.missing = missing

    def send(self, command):
        self.proc.stdin.write(command + "\n")
        self.proc.stdin.flush()

    def failure(self, what):
        return "%s: %s\nlast lines: %s\nstderr:\n%s" % (self.name, what, self.lines[-5:], "\n".join(self.log[-20:]))

    def wait_for(self, pattern, timeout, after=0):
        """(match, t, index) of the first line from `after` on; fails at once on "error ..." or an exit."""
        regex = re.compile(pattern)
        deadline = time.monotonic() + timeout
        with self._cond:
            i = after
            while True:
                for i in range(i, len(self.lines)):
                    body, t = self.lines[i]
                    if regex.search(body):
                        return regex.search(body), t, i
                    if body.startswith("error "):
                        raise AssertionError(self.failure(body))
                i = len(self.lines)
                if self.proc.poll() is not None and not any(r.is_alive() for r in self._readers):
                    raise AssertionError(self.failure("exit %s before /%s/" % (self.proc.returncode, pattern)))
                if time.monotonic() >= deadline:
                    raise AssertionError(self.failure("no /%s/ within %.1f s" % (pattern, timeout)))
                self._cond.wait(min(deadline - time.monotonic(), 0.2))

    def matching(self, pattern, after=0):
        with self._cond:
            lines = self.lines[after:]
        return [(m, t) for m, t in ((re.search(pattern, b), t) for b, t in lines) if m]

    def mark(self):
        with self._cond:
            return len(self.lines)

    def stop(self):
        if self.proc.poll() is None:
            try:
                self.send("quit")
                self.proc.stdin.close()
                self.proc.wait(5)
            except (OSError, subprocess.TimeoutExpired):
                self.proc.kill()
                self.proc.wait(5)
        for reader in self._readers:
            reader.join(5)
