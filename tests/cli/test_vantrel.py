"""The vantrel tool end to end: every verb as a separate process against a running alert service on
loopback, recordings checked by an independent reader (also after a recorder was killed, or split), bad
input refused with exit code 2, and what a newcomer meets first."""

import json
import os
import pty
import re
import signal
import subprocess
import sys
import threading
import time
from fnmatch import fnmatch

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support", "python"))
from vantrel_testing import Process, wait_until as wait_for  # noqa: E402

TOOL = os.environ["VANTREL_TOOL"]
ALERT_DEMO = os.environ["VANTREL_ALERT_DEMO"]
WITH_DOMAIN = os.environ["VANTREL_WITH_DOMAIN"]
MCAP_CHECK = os.environ.get("VANTREL_MCAP_CHECK", "")
DOMAIN = os.environ["KELVA_TEST_DOMAIN"]

POWER = {"SubsystemName": "Power", "ComponentName": "Battery", "Measure": "Voltage", "Nature": "Low",
         "AlarmDescription": "below 22 V"}
POWER_TEXT = "[SubsystemName: Power, ComponentName: Battery, Measure: Voltage, Nature: Low, AlarmDescription: below 22 V]"


def tool(*args, domain=DOMAIN, timeout=60, check=False, env=None):
    cmd = [TOOL, *map(str, args)]
    if domain is not None and args and args[0] in ("ps", "echo", "hz", "bw", "call", "pub", "record", "replay"):
        cmd[2:2] = ["--domain", str(domain)]
    done = subprocess.run(cmd, capture_output=True, text=True, timeout=timeout, env=env)
    if check:
        assert done.returncode == 0, f"{cmd}: {done.returncode}\n{done.stdout}\n{done.stderr}"
    return done


TOPIC = "M_Alert.IService.CmdRaiseAlarm"
RATE = 100  # sends per second

needs_reader = pytest.mark.skipif(not MCAP_CHECK, reason="the independent reader (tests/tools/mcap-check) is not installed")


def recorder(path, *options, topics=(TOPIC,)):
    return Process([TOOL, "record", "--domain", DOMAIN, "-o", str(path), *options, *topics], stdin=False)


def sender(count, rate=RATE):
    return Process([TOOL, "call", "--domain", DOMAIN, "--rate", str(rate), "--count", str(count), "-q",
                    "M_Alert.CmdRaiseAlarm", json.dumps({"Condition": POWER})], stdin=False)


@pytest.fixture
def service():
    s = Process([ALERT_DEMO, "service", DOMAIN, "300"], stdin=False)
    yield s
    s.stop()


@pytest.fixture
def second_domain():
    """A second domain of this test's own, held as long as the fixture lives."""
    holder = subprocess.Popen([WITH_DOMAIN, "sh", "-c", 'echo "$KELVA_TEST_DOMAIN"; exec cat >/dev/null'],
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    domain = holder.stdout.readline().strip()
    assert domain.isdigit() and domain != DOMAIN
    yield domain
    holder.stdin.close()
    holder.wait(timeout=10)


def raise_alarm(condition=POWER, env=None):
    tool("call", "M_Alert.CmdRaiseAlarm", json.dumps({"Condition": condition}), env=env, check=True)


def test_list_and_show_select_by_glob_describe_operations_and_name_the_nearest():
    every = [json.loads(line) for line in tool("list", "--json", check=True).stdout.splitlines()]
    if not os.environ.get("VANTREL_SUBSET"):  # a build of some modules only lists those
        assert len(every) == 424
    reports = [json.loads(line) for line in tool("list", "--json", "M_Alert.*.Report*", check=True).stdout.splitlines()]
    assert {r["operation"] for r in reports} == {e["operation"] for e in every if fnmatch(e["operation"], "M_Alert.*.Report*")}
    log = next(r for r in reports if r["name"] == "ReportAlarmLog")
    assert log["topic"] == "M_Alert_IClient_ReportAlarmLog"
    assert log["keys"] == "kelva_sending_actor, KeyAlarmId" and log["dispose"] is True
    assert "transient-local" in log["qos"]
    if not os.environ.get("VANTREL_SUBSET"):
        cmd_set = [json.loads(line) for line in tool("list", "--json", "*.CmdSet*", check=True).stdout.splitlines()]
        assert cmd_set and all(c["interface"] == "IService" and c["name"].startswith("CmdSet") for c in cmd_set)
    text = tool("list", "M_Alert", check=True).stdout
    assert text.startswith("M_Alert (interface 1.0.0)") and "IService.CmdRaiseAlarm" in text

    out = tool("show", "M_Alert.ReportAlarmLog", check=True).stdout
    assert "void ReportAlarmLog(const M_Alert::AlertIdType& KeyAlarmId, const M_Alert::AlarmLogType& Alarm, bool dispose)" in out
    assert "KeyAlarmId: string (M_Alert::AlertIdType) [key]" in out
    # Nested: the log's condition members, the enumeration's literals, the optional's element.
    assert "      SubsystemName: string" in out
    assert "Status: M_Alert::AlarmStatusKind::Type {Unknown = 0, Inactive = 1, Active = 2}" in out
    assert "TimeAcknowledged: sequence<M_Common::TimeType, 1>" in out
    assert "interface  1.0.0" in out
    schema = tool("show", "--schema", "M_Alert.CmdRaiseAlarm", check=True).stdout
    assert "struct CmdRaiseAlarm" in schema and "struct AlarmConditionInfoType" in schema
    assert tool("show", "M_Alert.NoSuchThing").returncode == 2
    assert tool("show", "M_Al*", check=True).stdout.startswith("M_Alert (interface ")
    commands = tool("show", "M_Alert.Cmd*", check=True).stdout
    assert "M_Alert.IService.CmdRaiseAlarm\n" in commands and "Report" not in commands
    for args, near in ((["show", "M_Alrt"], "M_Alert"),
                       (["show", "m_alert.cmdraisealarm"], "M_Alert.CmdRaiseAlarm"),
                       (["echo", "M_Alert.IClient.ReportAlarmLg"], "M_Alert.IClient.ReportAlarmLog"),
                       (["list", "M_Alrt.*"], "M_Alert.*")):
        done = tool(*args)
        assert done.returncode == 2 and f"did you mean {near}" in done.stderr, (args, done.stderr)
    nothing = tool("show", "Gearbox")
    assert nothing.returncode == 2 and "did you mean" not in nothing.stderr, nothing.stderr


def test_call_refuses_bad_arguments_reaches_the_service_echo_shows_state_and_disposals_and_ps_the_actors(service):
    for operation, arguments, message in [
        ("CmdRaiseAlarm", '{"Condition": {', "not valid JSON"),
        ("CmdRaiseAlarm", '{"Condition": {"Subsystem": "Power"}}',
         "Condition.Subsystem: no such member in M_Alert::AlarmConditionInfoType"),
        ("CmdRaiseAlarm", '{"Condition": {"SubsystemName": 12}}', "Condition.SubsystemName: expected a string, got 12"),
        ("CmdRaiseAlarm", '{"Condition": []}', "Condition: expected an object"),
        ("ReportAlarmLog", '{"KeyAlarmId": "A", "Alarm": {"Status": "Burning"}}',
         "Alarm.Status: expected a literal of M_Alert::AlarmStatusKind (Unknown, Inactive, Active)"),
    ]:
        done = tool("call", f"M_Alert.{operation}", arguments)
        assert done.returncode == 2 and message in done.stderr, (arguments, done.stderr)
    for args in (["call", "M_Alert.CmdNothing"], ["call", "M_Alert.CmdRaiseAlarm", "{}", "--dispose"], ["frobnicate"]):
        assert tool(*args).returncode == 2, args
    raise_alarm()  # the first alarm the service sees: nothing was sent before it
    assert wait_for(lambda: service.matching(f"service: raise {POWER_TEXT} -> ALM-1"))
    assert len(service.matching("service: raise")) == 1
    # A late echo still sees the current state of the transient-local reports.
    late = tool("echo", "--json", "-n", "2", "--duration", "20", "M_Alert.IClient.ReportAlarmLog",
                "M_Alert.IClient.ReportAlertStatus", check=True)
    seen = {s["operation"]: s for s in map(json.loads, late.stdout.splitlines())}
    log = seen["M_Alert.IClient.ReportAlarmLog"]
    assert log["dispose"] is False and log["value"]["KeyAlarmId"] == "ALM-1"
    assert log["value"]["Alarm"]["Condition"] == POWER and log["value"]["Alarm"]["Status"] == "Active"
    assert log["sender"] and seen["M_Alert.IClient.ReportAlertStatus"]["value"]["Status"]["NumberOfActiveWarningAlarms"] == 1
    watcher = Process([TOOL, "echo", "--domain", DOMAIN, "--keys", "M_Alert.IClient.ReportAlarmLog"], stdin=False)
    assert wait_for(lambda: watcher.matching("ReportAlarmLog"))  # the current state first

    # ps while the watcher reads, in the domain VANTREL_DOMAIN names; -d wins over a variable that would not parse.
    out = json.loads(tool("ps", "--json", "--wait", "3", domain=None, env={**os.environ, "VANTREL_DOMAIN": DOMAIN},
                          check=True).stdout)
    actor = next(a for a in out["actors"] if a["name"] == "alert-service")
    assert actor["module"] == "M_Alert" and actor["side"] == "Service" and actor["version"] == "1.0.0"
    assert "CmdRaiseAlarm" in actor["reads"] and "ReportAlertStatus" in actor["sends"]
    assert actor["sends"]["ReportAlarmLog"]["readers"] >= 1  # the watcher
    assert any(p["program"].endswith("alert_demo") for p in out["processes"])
    assert out["mismatches"] == []
    car = {**os.environ, "VANTREL_DOMAIN": "car"}
    assert "alert_demo" in tool("ps", "--wait", "3", "-d", DOMAIN, domain=None, env=car, check=True).stdout
    bad = tool("ps", "--wait", "0", domain=None, env=car)
    assert bad.returncode == 2 and "VANTREL_DOMAIN" in bad.stderr, bad.stderr
    tool("list", "M_Alert", env=car, check=True)  # takes no domain

    # Disposal: clearing the alarm disposes its log.
    sent = tool("call", "M_Alert.CmdClearAlarm", '{"AlarmIdList": ["ALM-1"]}', check=True).stdout
    # What is printed is what went out: the tool's own actor is the sender.
    assert re.match(r"sent M_Alert\.IService\.CmdClearAlarm \[kelva_sending_actor: [^,\s]+, AlarmIdList: ", sent), sent
    assert wait_for(lambda: watcher.matching("DISPOSED"))
    watcher.stop()
    disposed = watcher.matching("DISPOSED")[0]
    assert '"KeyAlarmId":"ALM-1"' in disposed and "M_Alert.IClient.ReportAlarmLog from " in disposed


def test_hz_and_bw_measure_a_stream():
    stream = sender(800)
    try:
        hz = tool("hz", "--json", "--duration", "4", "--window", "2", TOPIC, check=True)
        bw = tool("bw", "--json", "--duration", "3", "--window", "2", TOPIC, check=True)
    finally:
        assert stream.finish(seconds=60) == 0, stream.report()
    last = json.loads(hz.stdout.splitlines()[-1])
    assert last["topic"] == "M_Alert_IService_CmdRaiseAlarm" and 70 < last["hz"] < 130, last
    band = json.loads(bw.stdout.splitlines()[-1])
    assert band["min_bytes"] == band["max_bytes"] > 0  # every sample the same serialized size
    assert band["bytes_per_s"] == pytest.approx(band["hz"] * band["mean_bytes"], rel=0.05)


def test_recordings_info_and_replays_into_a_fresh_domain(service, second_domain, tmp_path):
    """Three recorders of one drive: what info and an independent reader find, replays of the commands into a
    service of another domain (whole, from 1 s in, looping) and of the reports with their disposals, and bad
    recordings refused without sending anything or overwriting."""
    drive, logs, reports = tmp_path / "drive.mcap", tmp_path / "lz4.mcap", tmp_path / "reports.mcap"
    recorders = [recorder(drive, topics=["M_Alert"]), recorder(logs, "--compression", "lz4", topics=["M_Alert"]),
                 recorder(reports, topics=["M_Alert.IClient.ReportAlarmLog"])]
    assert wait_for(lambda: all(r.matching("recording") for r in recorders))
    time.sleep(1.0)  # the recorders' readers are matched
    conditions = [{**POWER, "Nature": f"n{i}"} for i in range(3)]
    raise_alarm(conditions[0])
    time.sleep(2.0)  # the others come more than 1 s later
    for c in conditions[1:]:
        raise_alarm(c)
    assert wait_for(lambda: len(service.matching("service: raise")) == 3), service.lines
    tool("call", "M_Alert.CmdClearAlarm", '{"AlarmIdList": ["ALM-2"]}', check=True)
    assert wait_for(lambda: service.matching("service: clear ALM-2"))
    time.sleep(1.0)
    assert [r.stop() for r in recorders] == [0, 0, 0]
    assert recorders[0].matching("recorded ")

    info = json.loads(tool("info", "--json", str(drive), check=True).stdout)
    by_topic = {(c["topic"], c["metadata"]["sample"]): c for c in info["channels"]}
    assert by_topic[("M_Alert_IService_CmdRaiseAlarm", "data")]["messages"] == 3
    assert by_topic[("M_Alert_IService_CmdClearAlarm", "data")]["messages"] == 1
    assert by_topic[("M_Alert_IClient_ReportAlarmLog", "dispose")]["messages"] == 1
    assert by_topic[("M_Alert_IClient_ReportAlarmLog", "data")]["messages"] == 3
    assert info["indexed"] is True and info["compression"] == ["zstd"]
    # The writer of a channel's first sample, while it is still there (a one-shot call's is gone quickly).
    assert by_topic[("M_Alert_IClient_ReportAlarmLog", "data")]["metadata"]["writer_guid"]
    assert json.loads(tool("info", "--json", str(logs), check=True).stdout)["compression"] == ["lz4"]
    if MCAP_CHECK:  # an independent reader decodes every message from the file's own schemas
        raised = [m["value"]["Condition"] for m in decoded(drive) if m["topic"] == "M_Alert_IService_CmdRaiseAlarm"]
        assert raised == conditions

    good = logs.read_bytes()
    again = tool("record", "-o", str(logs), "--duration", "1", "M_Alert")
    assert again.returncode == 2 and "exists" in again.stderr
    assert logs.read_bytes() == good
    truncated, corrupt = tmp_path / "truncated.mcap", tmp_path / "corrupt.mcap"
    truncated.write_bytes(good[: len(good) // 2])
    corrupt.write_bytes(bytes(b ^ 0x5A if 40 <= i < min(len(good) - 40, 400) else b for i, b in enumerate(good)))

    other = Process([ALERT_DEMO, "service", second_domain, "300"], stdin=False)
    commands = ("--topics", "M_Alert.IService.*", str(drive))
    natures = lambda: [re.search(r"Nature: (\w+)", line).group(1) for line in other.matching("service: raise")]
    try:
        for bad in (truncated, corrupt, tmp_path / "missing.mcap"):
            for verb in ("info", "replay"):
                done = tool(verb, str(bad), domain=second_domain)
                assert done.returncode == 2 and str(bad) in done.stderr, (verb, bad, done.stdout, done.stderr)
        done = tool("replay", "--rate", "4", *commands, domain=second_domain, check=True)
        assert "replayed 4 messages" in done.stdout
        assert wait_for(lambda: len(other.matching("service: raise")) == 3 and other.matching("service: clear")), other.lines
        # Exactly the recorded commands: the bad replays sent nothing.
        assert [line.split(" -> ")[0] for line in other.matching("service: raise")] == [
            "service: raise " + POWER_TEXT.replace("Nature: Low", f"Nature: n{i}") for i in range(3)]
        assert other.matching("service: clear ALM-2")

        done = tool("replay", "--rate", "0", "--start", "1", *commands, domain=second_domain, check=True)
        assert "replayed 3 messages" in done.stdout
        assert wait_for(lambda: len(natures()) == 5) and natures()[3:] == ["n1", "n2"], other.lines
        looping = Process([TOOL, "replay", "--domain", second_domain, "--rate", "4", "--loop", *commands], stdin=False)
        assert wait_for(lambda: len(natures()) >= 11, 60), other.lines
        assert looping.stop() == 0
        assert int(re.search(r"replayed (\d+) messages", "\n".join(looping.lines)).group(1)) >= 8, looping.report()
        assert natures()[5:11] == ["n0", "n1", "n2"] * 2
    finally:
        other.stop()

    # The reports, replayed where no service writes them, arrive with their disposal and their sender.
    watcher = Process([TOOL, "echo", "--domain", second_domain, "--json", "M_Alert.IClient.ReportAlarmLog"], stdin=False)
    try:
        time.sleep(1.0)
        tool("replay", str(reports), domain=second_domain, check=True)
        # In recorded order; when the replay ends, its writer disposes the instances still alive.
        assert wait_for(lambda: len(watcher.matching("ReportAlarmLog")) >= 4), watcher.lines
        seen = [json.loads(line) for line in watcher.matching("ReportAlarmLog")[:4]]
        assert [s["dispose"] for s in seen] == [False, False, False, True]
        assert [s["value"]["Alarm"]["Condition"] for s in seen[:3]] == conditions
        assert seen[3]["value"]["KeyAlarmId"] == "ALM-2"
        assert seen[0]["sender"] != "" and all(s["sender"] == seen[0]["sender"] for s in seen)
    finally:
        watcher.stop()


def test_the_tool_follows_the_topic_prefix_and_qos_rules_of_its_configuration(tmp_path):
    # No prefix removed: the topics keep "VendorData_"; the alarm log best-effort and volatile, which a
    # reader asking the defaults (reliable, transient-local) would not match.
    config = tmp_path / "kelva.toml"
    config.write_text('[topics]\nprefix = ""\n\n[[qos]]\nmatch = "*_ReportAlarmLog"\nreliability = "best_effort"\n'
                      'durability = "volatile"\n')
    env = {**os.environ, "KELVA_CONFIG": str(config)}
    entry = json.loads(tool("list", "--json", "M_Alert.IClient.ReportAlarmLog", env=env, check=True).stdout)
    assert entry["topic"] == "VendorData_M_Alert_IClient_ReportAlarmLog"
    assert entry["qos"].startswith("best-effort, volatile"), entry["qos"]

    service = Process([ALERT_DEMO, "service", DOMAIN, "300"], env=env, stdin=False)
    echo = Process([TOOL, "echo", "--domain", DOMAIN, "--json", "M_Alert.IClient.ReportAlarmLog"], env=env, stdin=False)
    try:
        time.sleep(1.0)
        raise_alarm(env=env)
        assert wait_for(lambda: service.matching("service: raise")), service.report()
        assert wait_for(lambda: echo.matching("ReportAlarmLog")), echo.report()
        log = json.loads(echo.matching("ReportAlarmLog")[0])
        assert log["value"]["KeyAlarmId"] == "ALM-1" and log["value"]["Alarm"]["Condition"] == POWER
    finally:
        echo.stop()
        service.stop()


def test_the_commands_the_demo_prints_see_the_demo():
    source = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
    build = os.environ.get("VANTREL_BUILD_DIR") or os.path.dirname(os.path.dirname(os.path.dirname(TOOL)))
    demo = Process(["bash", os.path.join(source, "examples", "run-demo.sh"), build], stdin=False,
                   env=dict(os.environ, VANTREL_DOMAIN=DOMAIN, VANTREL_DEMO_SECONDS="90"))
    try:
        assert demo.wait_for("(end of commands)", 30), demo.report()
        commands = [line.strip() for line in demo.lines[:demo.lines.index("(end of commands)")] if line.startswith("    ")]
        assert any(f"VANTREL_DOMAIN={DOMAIN}" in c for c in commands), commands
        assert any("CYCLONEDDS_URI=file://" in c for c in commands), commands
        # Pasted, one after the other, into a shell as a newcomer opens it: without the run's DDS and tool variables.
        clean = {k: v for k, v in os.environ.items() if k not in ("CYCLONEDDS_URI", "VANTREL_DOMAIN", "KELVA_CONFIG")}
        pasted = subprocess.run(["bash", "-e", "-c", "\n".join(commands)], capture_output=True, text=True,
                                timeout=180, env=clean)
        assert pasted.returncode == 0, pasted.stdout + pasted.stderr
        out = pasted.stdout
        assert "alert_demo" in out, out                                   # ps
        logs = [line for line in out.splitlines() if " M_Alert.IClient.ReportAlarmLog from " in line]
        assert any("battery voltage low" in line for line in logs), out  # echo: an alarm raised while it ran
        assert re.search(r"M_Alert_I(Client|Service)_\w+: average rate [0-9.]+ Hz", out), out  # hz
        assert f"waiting for writers on 1 topic of domain {DOMAIN}" in pasted.stderr, pasted.stderr
        assert re.search(rf"waiting for writers on \d+ topics of domain {DOMAIN}", pasted.stderr), pasted.stderr
    finally:
        code = demo.stop()
    assert code == 0 and "demo: stopped" in demo.lines, demo.report()


def decoded(path):
    """Every message as the independent reader decodes it through the file's index."""
    done = subprocess.run(["node", MCAP_CHECK, str(path)], capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, f"{path}: {done.stderr}"
    return [json.loads(line) for line in done.stdout.splitlines()]


def publish_times(path):
    lines = decoded(path)
    assert all(line["value"]["Condition"] == POWER for line in lines)
    return [int(line["publishTime"]) for line in lines]


def kill_and_recover(tmp, rate, seconds):
    """Two recorders of a stream of `rate` commands a second: one SIGKILLed mid-stream `seconds` after its first
    flush, the other closed properly as the reference; the killed file recovered. Returns the time of the kill
    (ns), the three files and what the recovery printed."""
    killed, reference, fixed = tmp / "killed.mcap", tmp / "reference.mcap", tmp / "fixed.mcap"
    victim, witness = recorder(killed), recorder(reference)
    assert wait_for(lambda: victim.matching("recording") and witness.matching("recording"))
    time.sleep(1.0)  # both recorders' readers are matched
    send = sender(10**8, rate)
    assert wait_for(lambda: killed.exists() and killed.stat().st_size > 0), victim.report()  # a first flush
    time.sleep(seconds)  # more chunks flushed and one in flight
    killed_at = time.time_ns()
    victim.proc.send_signal(signal.SIGKILL)
    victim.finish()
    time.sleep(1.0)
    send.stop()
    time.sleep(1.0)  # the last messages sent arrive at the witness, which closes its file properly
    assert witness.stop() == 0, witness.report()
    return killed_at, killed, reference, fixed, tool("recover", killed, "-o", fixed, check=True).stdout


@needs_reader
def test_a_killed_recording_is_recovered_up_to_its_last_flushed_chunk(tmp_path):
    killed_at, killed, reference, fixed, recovered = kill_and_recover(tmp_path, RATE, 2.5)
    # The killed file is refused, but info says what a recovery keeps.
    info = tool("info", "--json", killed)
    assert info.returncode == 2 and info.stderr.startswith(f"vantrel: {killed}: "), info.stderr
    recoverable = json.loads(info.stdout)["recoverable"]
    assert f"recoverable: {recoverable['messages']} messages" in tool("info", killed).stdout
    assert f"kept:    {recoverable['messages']} messages" in recovered, recovered
    replay = tool("replay", killed)
    assert replay.returncode == 2 and replay.stderr.startswith(f"vantrel: {killed}: "), replay.stderr
    again = tool("recover", killed, "-o", fixed)
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
    assert wait_for(lambda: by_time.matching("recording") and "recording" in "".join(shown))
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
