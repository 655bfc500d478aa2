"""The wire carries no plain text of a secured domain: in a private network namespace every frame on the
loopback is captured while a client sends a distinctive string to a service. Secured, the string reaches the
service but never appears in a frame; unsecured, as the control, it does."""

import json
import secrets
import subprocess
import sys
from pathlib import Path

import pytest

from conftest import DOMAIN, PEER, environment

CAPTURE = Path(__file__).with_name("wire_capture.py")


@pytest.fixture(scope="module")
def namespace():
    try:
        probe = subprocess.run(["unshare", "--net", "--", "ip", "link", "set", "lo", "up"], capture_output=True,
                               text=True, timeout=20)
    except FileNotFoundError:
        pytest.skip("unshare is not installed: no private network namespace, no capture")
    if probe.returncode != 0:
        pytest.skip(f"cannot make a private network namespace (root or CAP_SYS_ADMIN needed): {probe.stderr.strip()}")


def exchange_in_namespace(marker, service_config="-", client_config="-"):
    done = subprocess.run(["unshare", "--net", "--", sys.executable, str(CAPTURE), PEER, DOMAIN, marker,
                           str(service_config), str(client_config)],
                          capture_output=True, text=True, timeout=120, env=environment())
    assert done.returncode == 0, done.stdout + done.stderr
    return json.loads(done.stdout.strip().splitlines()[-1])


def test_secured_traffic_never_shows_the_text_it_carries(namespace, material):
    marker = "wire-" + secrets.token_hex(8)
    secured = exchange_in_namespace(marker, material / "mount-service.toml", material / "display.toml")
    assert secured["received"], secured  # the service got the text: it did travel, decrypted at the receiver
    assert secured["frames"] > 0 and secured["marker_frames"] == 0, secured


def test_the_control_unsecured_traffic_shows_it(namespace):
    marker = "wire-" + secrets.token_hex(8)
    plain = exchange_in_namespace(marker)
    assert plain["received"], plain
    assert plain["marker_frames"] > 0, plain
