"""Power loss, measured: a recorder killed (SIGKILL) mid-stream beside a second one that is closed properly;
prints messages recorded before the kill, messages recovered from the killed file, and seconds lost.

    build/tests/support/vantrel-with-domain python3 tests/cli/measure_recovery.py BUILD_DIR [SECONDS] [RATE]
(with CYCLONEDDS_URI=file://$PWD/config/cyclonedds-loopback.xml and tests/tools/mcap-check installed)."""

import os
import pathlib
import random
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
os.environ["VANTREL_TOOL"] = os.path.join(sys.argv[1], "tools", "vantrel", "vantrel")
os.environ["VANTREL_MCAP_CHECK"] = os.path.join(HERE, "..", "tools", "mcap-check", "check.mjs")
os.environ["VANTREL_ALERT_DEMO"] = os.path.join(sys.argv[1], "examples", "alert", "alert_demo")
os.environ["VANTREL_WITH_DOMAIN"] = os.path.join(sys.argv[1], "tests", "support", "vantrel-with-domain")
from test_vantrel import kill_and_recover, publish_times  # noqa: E402
from vantrel_testing import loopback_problem  # noqa: E402

seconds = float(sys.argv[2]) if len(sys.argv) > 2 else 10.0
rate = int(sys.argv[3]) if len(sys.argv) > 3 else 1000
if loopback_problem():
    sys.exit(loopback_problem())
with tempfile.TemporaryDirectory() as tmp:
    # At any point between two of the recorder's flushes.
    killed_at, _, reference, fixed, recovered = kill_and_recover(pathlib.Path(tmp), rate, seconds + random.random())
    sent = [t for t in publish_times(reference) if t <= killed_at]
    kept = publish_times(fixed)
    print(recovered, end="")
    print(f"messages recorded before the kill: {len(sent)}")
    print(f"messages recovered:                {len(kept)}")
    print(f"seconds lost:                      {(killed_at - max(kept)) / 1e9:.3f}"
          f" ({len(sent) - len(kept)} messages at {rate}/s)")
