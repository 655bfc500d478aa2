"""Shared by the security tests: loopback guard, domain, key material made once, peers and the tool."""

import json
import os
import subprocess
import sys

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support", "python"))
from vantrel_testing import REFUSAL, Process, loopback_problem, wait_until  # noqa: E402,F401  (for the tests)

TOOL = os.environ.get("VANTREL_TOOL", "")
PEER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "peer.py")
DOMAIN = os.environ.get("KELVA_TEST_DOMAIN", "")
MODULES = ("M_Alert", "M_Mount")

# A service of both modules, a client of both (commands out, reports in, never the reverse), and a bridge holding
# both sides of M_Alert (what a replaying tool needs).
APPS = {"mount-service": "M_Mount=service,M_Alert=service", "display": "M_Mount=client,M_Alert=client",
        "bridge": "M_Alert=service,M_Alert=client"}


def pytest_configure(config):
    problem = loopback_problem()
    if problem:
        raise pytest.UsageError(REFUSAL.format(problem))
    if not (TOOL and DOMAIN):
        raise pytest.UsageError("VANTREL_TOOL and KELVA_TEST_DOMAIN must be set "
                                "(ctest sets them; the domain comes from vantrel-with-domain)")


def environment(config=None):
    """This process's environment with KELVA_CONFIG set to `config`, or without it (an unsecured process)."""
    env = dict(os.environ)
    env.pop("KELVA_CONFIG", None)
    if config:
        env["KELVA_CONFIG"] = str(config)
    return env


def tool(*args, config=None, timeout=60):
    return subprocess.run([TOOL, *map(str, args)], capture_output=True, text=True, timeout=timeout,
                          env=environment(config))


def tool_ok(*args, **options):
    done = tool(*args, **options)
    assert done.returncode == 0, done.stdout + done.stderr
    return done


def peer(side, config, marker="secured-exchange", modules=MODULES):
    return Process([sys.executable, PEER, side, DOMAIN, marker, *modules], environment(config))


@pytest.fixture(scope="session")
def material(tmp_path_factory):
    """CA, governance, and per application identity, permissions and KELVA_CONFIG file."""
    directory = tmp_path_factory.mktemp("security")
    args = ["security", "setup", directory]
    for name, grants in APPS.items():
        args += ["--app", f"{name}:{grants}"]
    tool_ok(*args)
    return directory


@pytest.fixture(scope="session")
def operations():
    """Every operation of the modules under test, from the catalogue: {"M_Alert.IService.CmdRaiseAlarm": {...}}."""
    out = {}
    for module in MODULES:
        for entry in map(json.loads, tool_ok("list", "--json", module).stdout.splitlines()):
            out[entry["operation"]] = entry
    assert out
    return out
