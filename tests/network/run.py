#!/usr/bin/env python3
"""ctest's entry to the multi-host tests: runs test_hosts.py with pytest and prints the figures.

Exit codes: pytest's, except 77 (ctest's SKIP_RETURN_CODE) when network namespaces cannot be made here (not
root, no CAP_NET_ADMIN, no iproute2): the reason is printed, the run neither passes nor fails.
"""
import os
import signal
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import netns  # noqa: E402


def main():
    try:
        netns.probe()
    except netns.Unavailable as e:
        print("SKIPPED: network namespaces unavailable: %s" % e, flush=True)
        return 77

    # A stopped run (SIGTERM, SIGHUP, or past the budget) still tears down: pytest runs the fixtures'
    # finalizers on an interrupt, which stop the nodes and delete the namespaces.
    def interrupt(signum, frame):
        raise KeyboardInterrupt("signal %d" % signum)
    for signum in (signal.SIGTERM, signal.SIGHUP, signal.SIGALRM):
        signal.signal(signum, interrupt)
    # A pass takes about 10 s; the budget fails a hanging run well before ctest's own TIMEOUT.
    signal.alarm(int(os.environ.get("VANTREL_NETWORK_BUDGET_S", "100")))
    figures = os.path.join(os.getcwd(), "network-figures.txt")
    if os.path.exists(figures):
        os.remove(figures)
    code = pytest.main(["-q", "-s", "-p", "no:cacheprovider", os.path.join(HERE, "test_hosts.py")] + sys.argv[1:])
    signal.alarm(0)
    if os.path.exists(figures):
        with open(figures) as f:
            print("\nmulti-host figures:\n" + f.read(), flush=True)
    return int(code)


if __name__ == "__main__":
    sys.exit(main())
