"""Runs inside a private network namespace (unshare --net): brings its loopback up, keeps every frame on it
in a raw packet socket while a client of M_Alert sends operations carrying MARKER to a service, and prints
one JSON summary: whether the service received the marker, how many frames went over the wire (and how many
the socket dropped), and how many of them carried the marker in the clear.

    wire_capture.py MARKER SERVICE_CONFIG|- CLIENT_CONFIG|-
"""

import json
import socket
import struct
import subprocess
import sys
import time

from conftest import peer, wait_until

ETH_P_ALL, SO_RCVBUFFORCE, SOL_PACKET, PACKET_STATISTICS = 0x0003, 33, 263, 6  # Linux values


def main():
    marker, service_config, client_config = sys.argv[1:4]
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    sock = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
    sock.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 256 << 20)  # holds the whole exchange
    sock.bind(("lo", 0))
    service = peer("service", None if service_config == "-" else service_config, marker="-", modules=("M_Alert",))
    client = peer("client-write-only", None if client_config == "-" else client_config, marker=marker,
                  modules=("M_Alert",))
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
    frames = []
    sock.setblocking(False)
    while True:
        try:
            frames.append(sock.recv(65535))
        except BlockingIOError:
            break
    _, drops = struct.unpack("II", sock.getsockopt(SOL_PACKET, PACKET_STATISTICS, 8))
    print(json.dumps({"received": received, "frames": len(frames), "dropped": drops,
                      "marker_frames": sum(1 for f in frames if marker.encode() in f)}))


if __name__ == "__main__":
    main()
