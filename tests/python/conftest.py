"""What every test of the Python binding shares: the loopback guard, the DDS domain of this process (from
vantrel-with-domain), sessions, a log file the toolkit's logger writes to, and bounded waiting."""

import os
import time

import pytest


def _loopback_problem():
    uri = os.environ.get("CYCLONEDDS_URI", "")
    if not uri:
        return "CYCLONEDDS_URI is not set; DDS would use every network interface of this machine"
    path = uri[len("file://"):] if uri.startswith("file://") else uri
    if "," in path or "<" in path:
        return f"CYCLONEDDS_URI must name exactly one configuration file, not {uri!r}"
    try:
        with open(path, encoding="utf-8") as f:
            if "127.0.0.1" not in f.read():
                return f"the DDS configuration {path!r} does not bind to 127.0.0.1"
    except OSError:
        return f"CYCLONEDDS_URI names {path!r}, which cannot be read"
    return None


def pytest_configure(config):
    problem = _loopback_problem()
    if problem:
        raise pytest.UsageError(f"REFUSING TO RUN TESTS: {problem}. Run them through ctest, or set "
                                "CYCLONEDDS_URI=file://<source>/config/cyclonedds-loopback.xml.")
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


def wait_until(predicate, timeout=10.0):
    """Waits (generously: loaded machines) until predicate() is true; returns whether it became true."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        if predicate():
            return True
        time.sleep(0.01)
    return predicate()
