#!/usr/bin/env python3
"""ctest's entry to the multi-host tests: runs test_hosts.py with pytest and prints the figures.

Exit codes: pytest's, except 77 (ctest's SKIP_RETURN_CODE) when every test was skipped because network
namespaces cannot be made here (not root, no CAP_NET_ADMIN, no iproute2): the reason is printed, the run
neither passes nor fails.
"""
import os
import signal
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))


class Outcomes:
    def __init__(self):
        self.passed = self.failed = self.skipped = 0
        self.reasons = set()

    def pytest_runtest_logreport(self, report):
        if report.skipped:
            if report.when == "setup":
                self.skipped += 1
                reason = report.longrepr[2] if isinstance(report.longrepr, tuple) else report.longrepr
                self.reasons.add(str(reason))
        elif report.failed:
            self.failed += 1
        elif report.when == "call":
            self.passed += 1


def main():
    # A stopped run (SIGTERM, SIGHUP) still tears down: pytest runs the fixtures' finalizers on an interrupt,
    # which stop the nodes and delete the namespaces.
    def interrupt(signum, frame):
        raise KeyboardInterrupt("signal %d" % signum)
    signal.signal(signal.SIGTERM, interrupt)
    signal.signal(signal.SIGHUP, interrupt)
    # The whole run is bounded (a pass takes about 10 s): past the budget it is interrupted the same way,
    # torn down and failed, well before ctest's own TIMEOUT.
    budget = int(os.environ.get("VANTREL_NETWORK_BUDGET_S", "100"))

    def over_budget(signum, frame):
        print("\nmulti-host tests: over the budget of %d s, interrupted" % budget, flush=True)
        raise KeyboardInterrupt("over budget")
    signal.signal(signal.SIGALRM, over_budget)
    signal.alarm(budget)
    figures = os.path.join(os.getcwd(), "network-figures.txt")
    if os.path.exists(figures):
        os.remove(figures)
    outcomes = Outcomes()
    code = pytest.main(["-q", "-s", "-p", "no:cacheprovider", os.path.join(HERE, "test_hosts.py")] + sys.argv[1:],
                       plugins=[outcomes])
    signal.alarm(0)
    if os.path.exists(figures):
        with open(figures) as f:
            print("\nmulti-host figures:\n" + f.read(), flush=True)
    if code == 0 and outcomes.passed == 0 and outcomes.failed == 0 and outcomes.skipped > 0:
        for reason in sorted(outcomes.reasons):
            print("SKIPPED: " + reason, flush=True)
        return 77
    return int(code)


if __name__ == "__main__":
    sys.exit(main())
