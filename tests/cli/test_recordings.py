"""Recordings that survive: a recorder killed mid-stream leaves a file `recover` makes whole again (checked
by an independent reader against a second recorder that was closed properly), and split recordings are
each a complete file and together hold every message sent. tests/cli/measure_recovery.py measures the first."""

import json
import os
import pty
import signal
import subprocess
import sys
import threading
import time

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support", "python"))
from vantrel_testing import Process  # noqa: E402
from vantrel_testing import kill_recorder_mid_stream, wait_until  # noqa: E402

TOOL = os.environ["VANTREL_TOOL"]
MCAP_CHECK = os.environ.get("VANTREL_MCAP_CHECK", "")
DOMAIN = os.environ["KELVA_TEST_DOMAIN"]
TOPIC = "M_Alert.IService.CmdRaiseAlarm"
CONDITION = {"SubsystemName": "Power", "ComponentName": "Battery", "Measure": "Voltage", "Nature": "Low",
             "AlarmDescription": "below 22 V"}
RATE = 100  # sends per second

needs_reader = pytest.mark.skipif(not MCAP_CHECK, reason="the independent reader (tests/tools/mcap-check) is not installed")


def run(*args):
    return subprocess.run([TOOL, *map(str, args)], capture_output=True, text=True, timeout=60)


def recorder(path, *options):
    return Process([TOOL, "record", "--domain", DOMAIN, "-o", str(path), *options, TOPIC], stdin=False)


def sender(count, rate=RATE):
    return Process([TOOL, "call", "--domain", DOMAIN, "--rate", str(rate), "--count", str(count), "-q",
                    "M_Alert.CmdRaiseAlarm", json.dumps({"Condition": CONDITION})], stdin=False)


def publish_times(path):
    """The publish times of every message, as the independent reader reads them through the file's index."""
    done = subprocess.run(["node", MCAP_CHECK, str(path)], capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, f"{path}: {done.stderr}"
    lines = [json.loads(line) for line in done.stdout.splitlines()]
    assert all(line["value"]["Condition"] == CONDITION for line in lines)
    return [int(line["publishTime"]) for line in lines]


def kill_and_recover(tmp, rate, seconds):
    """Two recorders of a stream of `rate` commands a second: one SIGKILLed mid-stream `seconds` after its first
    flush, the other closed properly as the reference; the killed file recovered. Returns the time of the kill
    (ns), the three files and what the recovery printed."""
    killed, reference, fixed = tmp / "killed.mcap", tmp / "reference.mcap", tmp / "fixed.mcap"
    victim, witness = recorder(killed), recorder(reference)
    assert wait_until(lambda: victim.matching("recording") and witness.matching("recording"))
    time.sleep(1.0)  # both recorders' readers are matched
    send = sender(10**8, rate)
    assert wait_until(lambda: killed.exists() and killed.stat().st_size > 0), victim.report()  # a first flush
    time.sleep(seconds)  # more chunks flushed and one in flight
    killed_at, witness_exit = kill_recorder_mid_stream(victim, send, witness, settle=1.0)
    assert witness_exit == 0, witness.report()
    done = run("recover", killed, "-o", fixed)
    assert done.returncode == 0, done.stderr
    return killed_at, killed, reference, fixed, done.stdout


@needs_reader
def test_a_killed_recording_is_recovered_up_to_its_last_flushed_chunk(tmp_path):
    killed_at, killed, reference, fixed, recovered = kill_and_recover(tmp_path, RATE, 2.5)
    # The killed file is refused, but info says what a recovery keeps.
    info = run("info", "--json", killed)
    assert info.returncode == 2 and info.stderr.startswith(f"vantrel: {killed}: "), info.stderr
    recoverable = json.loads(info.stdout)["recoverable"]
    assert f"recoverable: {recoverable['messages']} messages" in run("info", killed).stdout
    assert f"kept:    {recoverable['messages']} messages" in recovered, recovered
    replay = run("replay", "--domain", DOMAIN, killed)
    assert replay.returncode == 2 and replay.stderr.startswith(f"vantrel: {killed}: "), replay.stderr
    again = run("recover", killed, "-o", fixed)
    assert again.returncode == 2 and "exists" in again.stderr

    sent = publish_times(reference)
    kept = publish_times(fixed)
    before_kill = [t for t in sent if t <= killed_at]
    assert len(kept) == recoverable["messages"] > 0
    assert kept == sent[: len(kept)]  # every message up to the last flushed chunk, none missing
    # Lost: at most what the last second's flush and the chunk in flight held (bound generously).
    lost = len(before_kill) - len(kept)
    last_seconds = [t for t in before_kill if t > killed_at - 4_000_000_000]
    assert 0 <= lost <= len(last_seconds), (lost, len(last_seconds), len(before_kill))


def pty_recorder(path, *options):
    """A recorder whose stderr is a terminal (it shows its progress line there), and what it shows."""
    master, slave = pty.openpty()
    proc = subprocess.Popen([TOOL, "record", "--domain", DOMAIN, "-o", str(path), *options, TOPIC],
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=slave, text=True)
    os.close(slave)
    shown = []

    def read():
        try:
            while chunk := os.read(master, 4096):
                shown.append(chunk.decode(errors="replace"))
        except OSError:  # the terminal's other end is closed
            pass
        os.close(master)

    reader = threading.Thread(target=read, daemon=True)
    reader.start()
    return proc, shown, reader


@needs_reader
def test_split_recordings_are_each_complete_and_together_hold_every_message(tmp_path):
    by_time = recorder(tmp_path / "t.mcap", "--split-duration", "1")
    by_size, shown, terminal = pty_recorder(tmp_path / "s.mcap", "--split-size", "0.004")
    assert wait_until(lambda: by_time.matching("recording") and "recording" in "".join(shown))
    time.sleep(1.0)  # both recorders' readers are matched
    send = sender(300)
    assert send.finish(seconds=120) == 0, send.report()
    time.sleep(1.0)
    assert by_time.stop() == 0, by_time.report()
    by_size.send_signal(signal.SIGINT)
    assert by_size.wait(timeout=60) == 0
    terminal.join(timeout=10)

    for stem, process_output in (("t", "\n".join(by_time.lines)), ("s", by_size.stdout.read())):
        files = sorted(tmp_path.glob(f"{stem}_*.mcap"))
        assert len(files) > 1 and files[0].name == f"{stem}_0000.mcap", files
        assert f"to {len(files)} files" in process_output, process_output
        per_file = [publish_times(f) for f in files]  # each file complete and indexed on its own
        assert all(per_file), [len(p) for p in per_file]  # no empty file
        assert sum(len(p) for p in per_file) == 300
        joined = [t for p in per_file for t in p]
        assert joined == sorted(joined)  # the files follow each other
        if stem == "s":  # about the size asked for: the summary comes on top
            assert all(f.stat().st_size < 4000 + 8192 for f in files), [f.stat().st_size for f in files]
    assert "msg/s" in "".join(shown), shown  # a progress line on the terminal
    assert not by_time.matching("msg/s")  # none when stderr is a pipe
