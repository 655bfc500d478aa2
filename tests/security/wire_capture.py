"""Runs inside a private network namespace (unshare --net): brings its loopback up, captures every frame on
it with a raw packet socket while a service and a client of M_Alert exchange operations carrying MARKER,
and prints one JSON summary: whether the service received the marker, how many frames went over the wire,
and how many of them carried the marker in the clear.

    wire_capture.py PEER DOMAIN MARKER SERVICE_CONFIG|- CLIENT_CONFIG|-
"""

import json
import os
import socket
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support", "python"))
from vantrel_testing import Process, wait_until  # noqa: E402

ETH_P_ALL = 0x0003


class Capture:
    def __init__(self):
        self.sock = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
        self.sock.bind(("lo", 0))
        self.sock.settimeout(0.2)
        self.frames = []
        self.running = True
        self.thread = threading.Thread(target=self._run, daemon=True)
        self.thread.start()

    def _run(self):
        while self.running:
            try:
                self.frames.append(self.sock.recv(65535))
            except socket.timeout:
                pass

    def stop(self):
        self.running = False
        self.thread.join(timeout=5)
        self.sock.close()


def peer(cmd, config):
    env = dict(os.environ)
    env.pop("KELVA_CONFIG", None)
    if config != "-":
        env["KELVA_CONFIG"] = config
    return Process(cmd, env=env)


def main():
    program, domain, marker, service_config, client_config = sys.argv[1:6]
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    capture = Capture()
    service = peer([program, "service", domain, "-", "M_Alert"], service_config)
    client = peer([program, "client-write-only", domain, marker, "M_Alert"], client_config)
    received = False
    try:
        service.wait_for("ready", 20)
        client.wait_for("ready", 20)
        # Rounds until the service has the marker (a round before the match completed reaches nobody).
        for _ in range(20):
            client.command("send")
            if wait_until(lambda: any(marker in line for line in service.starting("received ")), 1.5):
                received = True
                break
    finally:
        client.finish(20)
        service.finish(20)
        time.sleep(0.3)  # the last frames in flight
        capture.stop()
    print(json.dumps({"received": received, "frames": len(capture.frames),
                      "marker_frames": sum(1 for f in capture.frames if marker.encode() in f)}))


if __name__ == "__main__":
    main()
