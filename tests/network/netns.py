"""A small network of hosts on one machine, made of Linux network namespaces (Debian's iproute2).

    bridge namespace <prefix>-br:  br0 (a Linux bridge, multicast snooping off), ports p1 .. pN
    host namespace   <prefix>-hI:  lo, veth0 = 10.213.0.I/24, route 224.0.0.0/4 dev veth0

Each host's veth0 is one end of a veth pair whose other end (pI) is a port of the bridge. Nothing is made in
the namespace the harness runs in: every `ip` command runs inside one of the namespaces made here (`ip -n`),
the pairs are born inside the bridge namespace, the bridge has no uplink, and so no packet leaves the
namespaces and the machine's own interfaces and routes stay as they are.

Names carry the harness's pid (and a random part), so parallel runs do not meet; Network.close() removes
every namespace it made, and Network.remove_stale() removes those of earlier runs whose process is gone
(a run killed with SIGKILL cannot clean up after itself).
"""
import os
import re
import secrets
import shutil
import subprocess
import time

SUBNET = "10.213.0"
PREFIX = "vtnet"
_STALE = re.compile(r"^" + PREFIX + r"-(\d+)-[0-9a-f]+-(br|h\d+|probe)$")


class Unavailable(Exception):
    """Namespaces cannot be made here (not root, no CAP_NET_ADMIN, no iproute2, ...): a reason to skip."""


def _run(args, check=True):
    done = subprocess.run(args, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, timeout=30)
    if check and done.returncode != 0:
        raise RuntimeError("%s: exit %d: %s" % (" ".join(args), done.returncode, done.stderr.strip()))
    return done


def namespaces():
    """The names of the machine's named network namespaces."""
    out = _run(["ip", "netns", "list"], check=False).stdout
    return [line.split()[0] for line in out.splitlines() if line.strip()]


def probe():
    """Raises Unavailable with the reason when this process cannot make namespaces and run in them."""
    if shutil.which("ip") is None:
        raise Unavailable("the ip command (Debian package iproute2) is not installed")
    if os.geteuid() != 0:
        raise Unavailable("not root: network namespaces need CAP_NET_ADMIN (run the tests as root)")
    name = "%s-%d-%s-probe" % (PREFIX, os.getpid(), secrets.token_hex(2))
    made = _run(["ip", "netns", "add", name], check=False)
    if made.returncode != 0:
        raise Unavailable("`ip netns add` failed: %s" % made.stderr.strip())
    try:
        inside = _run(["ip", "netns", "exec", name, "ip", "-o", "link", "show", "lo"], check=False)
        if inside.returncode != 0:
            raise Unavailable("`ip netns exec` failed: %s" % inside.stderr.strip())
    finally:
        _run(["ip", "netns", "del", name], check=False)


def remove_stale():
    """Removes the namespaces of earlier runs of this harness whose process no longer exists."""
    for name in namespaces():
        m = _STALE.match(name)
        if m and not os.path.exists("/proc/%s" % m.group(1)):
            _run(["ip", "netns", "del", name], check=False)


class Host:
    def __init__(self, index, namespace):
        self.index = index
        self.namespace = namespace
        self.address = "%s.%d" % (SUBNET, index)
        self.interface = "veth0"

    def ip(self, *args, check=True):
        return _run(["ip", "-n", self.namespace] + list(args), check=check)

    def exec_args(self, argv):
        """The command line that runs argv inside this host's namespace."""
        return ["ip", "netns", "exec", self.namespace] + list(argv)

    def link_down(self):
        self.ip("link", "set", self.interface, "down")

    def link_up(self):
        """Brings the link back as a host's network manager would: the kernel restores the subnet route on
        its own, the multicast route (deleted with the link) is set again. Returns the monotonic time in ms
        at which the link was asked up (DDS may use it before `ip` has returned)."""
        asked = time.monotonic() * 1000.0
        self.ip("link", "set", self.interface, "up")
        self.ip("route", "replace", "224.0.0.0/4", "dev", self.interface)
        return asked


class Network:
    """N hosts on one bridge. Use as a context manager, or call close() in a finally."""

    def __init__(self, hosts):
        self.prefix = "%s-%d-%s" % (PREFIX, os.getpid(), secrets.token_hex(2))
        self.bridge = self.prefix + "-br"
        self.made = []
        self.hosts = []
        try:
            self._add(self.bridge)
            self._ip(self.bridge, "link", "set", "lo", "up")
            self._ip(self.bridge, "link", "add", "br0", "type", "bridge", "mcast_snooping", "0")
            self._ip(self.bridge, "link", "set", "br0", "up")
            for i in range(1, hosts + 1):
                host = Host(i, "%s-h%d" % (self.prefix, i))
                self._add(host.namespace)
                host.ip("link", "set", "lo", "up")
                port = "p%d" % i
                self._ip(self.bridge, "link", "add", port, "type", "veth", "peer", "name", host.interface,
                         "netns", host.namespace)
                self._ip(self.bridge, "link", "set", port, "master", "br0")
                self._ip(self.bridge, "link", "set", port, "up")
                host.ip("addr", "add", "%s/24" % host.address, "dev", host.interface)
                host.ip("link", "set", host.interface, "multicast", "on")
                host.ip("link", "set", host.interface, "up")
                host.ip("route", "add", "224.0.0.0/4", "dev", host.interface)
                self.hosts.append(host)
        except BaseException:
            self.close()
            raise

    def _add(self, name):
        _run(["ip", "netns", "add", name])
        self.made.append(name)

    @staticmethod
    def _ip(namespace, *args):
        return _run(["ip", "-n", namespace] + list(args))

    def close(self):
        for name in reversed(self.made):
            _run(["ip", "netns", "del", name], check=False)
        self.made = []

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
