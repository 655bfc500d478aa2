"""Shared by the Python binding's tests: loopback guard, the domain from vantrel-with-domain, sessions, log."""

import os
import sys

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support", "python"))
from vantrel_testing import REFUSAL, loopback_problem, wait_until  # noqa: E402,F401  (wait_until: for the tests)


def pytest_configure(config):
    problem = loopback_problem()
    if problem:
        raise pytest.UsageError(REFUSAL.format(problem))
    if not os.environ.get("KELVA_TEST_DOMAIN"):
        raise pytest.UsageError("KELVA_TEST_DOMAIN is not set: run the tests under vantrel-with-domain (ctest does)")


@pytest.fixture(scope="session")
def domain():
    return int(os.environ["KELVA_TEST_DOMAIN"])


@pytest.fixture(scope="module")
def sessions(domain):
    """Two sessions (participants) of the test's domain: one for each side of a conversation."""
    import vantrel
    return vantrel.Session(domain), vantrel.Session(domain)


@pytest.fixture
def log_lines(tmp_path):
    """The toolkit's log lines from now on (warn and above), as a function returning the text so far."""
    import vantrel
    path = tmp_path / "vantrel.log"
    vantrel.log.setSink(f"file:{path}")

    def read():
        return path.read_text(encoding="utf-8", errors="replace") if path.exists() else ""

    yield read
    vantrel.log.setSink("stderr")


def condition(n):
    from vantrel import M_Alert
    return M_Alert.AlarmConditionInfoType(f"S{n}", "Battery", "Voltage", "Low", f"alarm {n}")


@pytest.fixture
def client(sessions):
    from vantrel import M_Alert
    with M_Alert.Client.createWriteOnly(sessions[1], "test_client") as c:
        yield c
