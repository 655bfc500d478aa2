"""Runs inside a private network namespace (unshare --net): brings its loopback up, captures every frame on
it with a raw packet socket while a service and a client of M_Alert exchange operations carrying MARKER,
and prints one JSON summary: whether the service received the marker, how many frames and RTPS
submessages of each kind went over the wire, and how many frames carried the marker in the clear.

    wire_capture.py PEER DOMAIN MARKER SERVICE_CONFIG|- CLIENT_CONFIG|-
"""

import json
import os
import socket
import struct
import subprocess
import sys
import threading
import time

ETH_P_ALL = 0x0003
SUBMESSAGES = {0x15: "DATA", 0x30: "SEC_BODY", 0x31: "SEC_PREFIX", 0x32: "SEC_POSTFIX", 0x33: "SRTPS_PREFIX",
               0x34: "SRTPS_POSTFIX"}


def rtps_payload(frame):
    """The UDP payload of an IPv4 frame on loopback if it is an RTPS message, else None."""
    if len(frame) < 14 + 20 + 8 or frame[12:14] != b"\x08\x00":
        return None
    ip = frame[14:]
    if ip[9] != 17:  # UDP
        return None
    payload = ip[(ip[0] & 0x0F) * 4 + 8:]
    return payload if payload[:4] == b"RTPS" else None


def submessage_kinds(message, counts):
    at = 20  # RTPS header
    while at + 4 <= len(message):
        kind, flags = message[at], message[at + 1]
        length = struct.unpack("<H" if flags & 1 else ">H", message[at + 2:at + 4])[0]
        name = SUBMESSAGES.get(kind)
        if name:
            counts[name] = counts.get(name, 0) + 1
        if length == 0:  # the last submessage runs to the end of the message
            break
        at += 4 + length


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


class Peer:
    def __init__(self, cmd, config):
        env = dict(os.environ)
        env.pop("KELVA_CONFIG", None)
        if config != "-":
            env["KELVA_CONFIG"] = config
        self.proc = subprocess.Popen(cmd, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                     text=True, env=env)
        self.lines = []
        threading.Thread(target=lambda: [self.lines.append(l.rstrip("\n")) for l in self.proc.stdout], daemon=True).start()

    def wait(self, predicate, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end and not predicate():
            time.sleep(0.05)
        return predicate()

    def finish(self):
        self.proc.stdin.close()
        try:
            self.proc.wait(timeout=20)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()


def main():
    peer, domain, marker, service_config, client_config = sys.argv[1:6]
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    capture = Capture()
    service = Peer([peer, "service", domain, "-", "M_Alert"], service_config)
    client = Peer([peer, "client-write-only", domain, marker, "M_Alert"], client_config)
    received = False
    try:
        service.wait(lambda: "ready" in service.lines, 20)
        client.wait(lambda: "ready" in client.lines, 20)
        # Rounds until the service has the marker (a round before the match completed reaches nobody).
        for _ in range(20):
            client.proc.stdin.write("send\n")
            client.proc.stdin.flush()
            if service.wait(lambda: any(marker in line for line in service.lines if line.startswith("received ")), 1.5):
                received = True
                break
    finally:
        client.finish()
        service.finish()
        time.sleep(0.3)  # the last frames in flight
        capture.stop()
    counts = {}
    rtps = 0
    for frame in capture.frames:
        message = rtps_payload(frame)
        if message is not None:
            rtps += 1
            submessage_kinds(message, counts)
    print(json.dumps({"received": received, "frames": len(capture.frames), "rtps": rtps, "submessages": counts,
                      "marker_frames": sum(1 for f in capture.frames if marker.encode() in f)}))


if __name__ == "__main__":
    main()
