"""In a private network namespace every loopback frame is captured while a client sends a distinctive string:
secured, it reaches the service but no frame shows it; unsecured, as the control, frames do."""

import json
import secrets
import socket
import struct
import subprocess
import sys
import time

import pytest

from conftest import environment, peer, wait_until

ETH_P_ALL, SO_RCVBUFFORCE, SOL_PACKET, PACKET_STATISTICS = 0x0003, 33, 263, 6  # Linux values


@pytest.fixture(scope="module")
def namespace():
    try:
        probe = subprocess.run(["unshare", "--net", "--", "ip", "link", "set", "lo", "up"], capture_output=True,
                               text=True, timeout=20)
    except FileNotFoundError:
        pytest.skip("unshare is not installed: no private network namespace, no capture")
    if probe.returncode != 0:
        pytest.skip(f"cannot make a private network namespace (root or CAP_SYS_ADMIN needed): {probe.stderr.strip()}")


@pytest.mark.parametrize("secured", [True, False], ids=["secured", "unsecured control"])
def test_only_unsecured_traffic_shows_the_text_it_carries(namespace, material, secured):
    marker = "wire-" + secrets.token_hex(8)
    configs = [material / "mount-service.toml", material / "display.toml"] if secured else ["-", "-"]
    done = subprocess.run(["unshare", "--net", "--", sys.executable, __file__, marker, *configs], capture_output=True,
                          text=True, timeout=120, env=environment())
    assert done.returncode == 0, done.stdout + done.stderr
    seen = json.loads(done.stdout.strip().splitlines()[-1])
    # The service got the text: it did travel (decrypted at the receiver when secured).
    assert seen["received"] and seen["frames"] > 0 and seen["dropped"] == 0, seen
    assert (seen["marker_frames"] > 0) == (not secured), seen


def capture():
    """Inside the namespace: every frame on the loopback while the client sends MARKER until the service has it;
    prints what was received and seen as JSON."""
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


if __name__ == "__main__":  # test_wire.py MARKER SERVICE_CONFIG|- CLIENT_CONFIG|-
    capture()
