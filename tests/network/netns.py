"""Hosts on one bridge, made of Linux network namespaces, none with an uplink (docs/network.md)."""
import os
import re
import secrets
import subprocess

PREFIX = "vtnet"
_STALE = re.compile(r"^" + PREFIX + r"-(\d+)-[0-9a-f]+-(br|h\d+)$")


def _run(args, check=True):
    done = subprocess.run(args, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=30)
    if check and done.returncode != 0:
        raise RuntimeError("%s: exit %d: %s" % (" ".join(args), done.returncode, done.stderr.strip()))
    return done


def namespaces():
    return [line.split()[0] for line in _run(["ip", "netns", "list"], False).stdout.splitlines() if line.strip()]


def remove_stale():
    for name in namespaces():
        m = _STALE.match(name)
        if m and not os.path.exists("/proc/%s" % m.group(1)):
            _run(["ip", "netns", "del", name], False)


class Host:
    def __init__(self, index, namespace):
        self.namespace = namespace
        self.address = "10.213.0.%d" % index
        self.interface = "veth0"

    def ip(self, *args):
        return _run(["ip", "-n", self.namespace] + list(args))

    def exec_args(self, argv):
        return ["ip", "netns", "exec", self.namespace] + list(argv)


class Network:
    """N hosts on one bridge; close() deletes every namespace it made."""

    def __init__(self, hosts):
        self.prefix = "%s-%d-%s" % (PREFIX, os.getpid(), secrets.token_hex(2))
        self.made, self.hosts = [], []
        try:
            bridge = Host(0, self._add("br"))
            bridge.ip("link", "set", "lo", "up")
            bridge.ip("link", "add", "br0", "type", "bridge", "mcast_snooping", "0")
            bridge.ip("link", "set", "br0", "up")
            for i in range(1, hosts + 1):
                host = Host(i, self._add("h%d" % i))
                host.ip("link", "set", "lo", "up")
                bridge.ip("link", "add", "p%d" % i, "type", "veth", "peer", "name", host.interface,
                          "netns", host.namespace)
                bridge.ip("link", "set", "p%d" % i, "master", "br0")
                bridge.ip("link", "set", "p%d" % i, "up")
                host.ip("addr", "add", "%s/24" % host.address, "dev", host.interface)
                host.ip("link", "set", host.interface, "multicast", "on")
                host.ip("link", "set", host.interface, "up")
                host.ip("route", "add", "224.0.0.0/4", "dev", host.interface)
                self.hosts.append(host)
        except BaseException:
            self.close()
            raise

    def _add(self, suffix):
        name = "%s-%s" % (self.prefix, suffix)
        _run(["ip", "netns", "add", name])
        self.made.append(name)
        return name

    def close(self):
        for name in reversed(self.made):
            _run(["ip", "netns", "del", name], False)
        self.made = []
