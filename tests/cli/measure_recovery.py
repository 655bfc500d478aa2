"""Power loss, measured: a recorder killed (SIGKILL) mid-stream beside a second one that is closed properly;
prints messages recorded before the kill, messages recovered from the killed file, and seconds lost.

    build/tests/support/vantrel-with-domain python3 tests/cli/measure_recovery.py BUILD_DIR [SECONDS] [RATE]
(with CYCLONEDDS_URI=file://$PWD/config/cyclonedds-loopback.xml and tests/tools/mcap-check installed)."""

import json
import os
import random
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "support", "python"))
from vantrel_testing import Process, kill_recorder_mid_stream, loopback_problem, wait_until  # noqa: E402

build = sys.argv[1]
seconds = float(sys.argv[2]) if len(sys.argv) > 2 else 10.0
rate = int(sys.argv[3]) if len(sys.argv) > 3 else 1000
if loopback_problem():
    sys.exit(loopback_problem())
tool = os.path.join(build, "tools", "vantrel", "vantrel")
check = os.path.join(HERE, "..", "tools", "mcap-check", "check.mjs")
domain = os.environ["KELVA_TEST_DOMAIN"]
topic = "M_Alert.IService.CmdRaiseAlarm"


def publish_times(path):
    done = subprocess.run(["node", check, path], capture_output=True, text=True, check=True)
    return [int(json.loads(line)["publishTime"]) for line in done.stdout.splitlines()]


with tempfile.TemporaryDirectory() as tmp:
    killed, reference, fixed = (os.path.join(tmp, n) for n in ("killed.mcap", "reference.mcap", "fixed.mcap"))
    victim = Process([tool, "record", "-d", domain, "-q", "-o", killed, topic], stdin=False)
    witness = Process([tool, "record", "-d", domain, "-q", "-o", reference, topic], stdin=False)
    wait_until(lambda: victim.matching("recording") and witness.matching("recording"))
    time.sleep(1.0)
    condition = {"SubsystemName": "Power", "ComponentName": "Battery", "Measure": "Voltage", "Nature": "Low",
                 "AlarmDescription": "below 22 V"}
    sender = Process([tool, "call", "-d", domain, "-q", "--rate", str(rate), "--count", "100000000",
                      "M_Alert.CmdRaiseAlarm", json.dumps({"Condition": condition})], stdin=False)
    time.sleep(1.0 + seconds + random.random())  # at any point between two of the recorder's flushes
    killed_at, _ = kill_recorder_mid_stream(victim, sender, witness, settle=1.0)
    recover = subprocess.run([tool, "recover", killed, "-o", fixed], capture_output=True, text=True, check=True)
    sent = [t for t in publish_times(reference) if t <= killed_at]
    kept = publish_times(fixed)
    print(recover.stdout, end="")
    print(f"messages recorded before the kill: {len(sent)}")
    print(f"messages recovered:                {len(kept)}")
    print(f"seconds lost:                      {(killed_at - max(kept)) / 1e9:.3f}"
          f" ({len(sent) - len(kept)} messages at {rate}/s)")
