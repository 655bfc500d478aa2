"""The wire carries no plain text of a secured domain: in a private network namespace every frame on the
loopback is captured while a client sends a distinctive string to a service. Secured, the string reaches the
service but never appears in a frame; unsecured, as the control, it does."""

import json
import secrets
import subprocess
import sys
from pathlib import Path

import pytest

from conftest import environment


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
    done = subprocess.run(["unshare", "--net", "--", sys.executable, Path(__file__).with_name("wire_capture.py"),
                           marker, *configs], capture_output=True, text=True, timeout=120, env=environment())
    assert done.returncode == 0, done.stdout + done.stderr
    seen = json.loads(done.stdout.strip().splitlines()[-1])
    # The service got the text: it did travel (decrypted at the receiver when secured).
    assert seen["received"] and seen["frames"] > 0 and seen["dropped"] == 0, seen
    assert (seen["marker_frames"] > 0) == (not secured), seen
