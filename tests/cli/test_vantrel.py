"""The vantrel tool end to end: every verb as a separate process against a running alert service on
loopback, recordings checked by an independent reader, and bad input refused with exit code 2."""

import json
import os
import re
import signal
import subprocess
import sys
import time
from fnmatch import fnmatch

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support", "python"))
from vantrel_testing import Process  # noqa: E402
from vantrel_testing import wait_until as wait_for  # noqa: E402

TOOL = os.environ["VANTREL_TOOL"]
ALERT_DEMO = os.environ["VANTREL_ALERT_DEMO"]
WITH_DOMAIN = os.environ["VANTREL_WITH_DOMAIN"]
MCAP_CHECK = os.environ.get("VANTREL_MCAP_CHECK", "")
DOMAIN = os.environ["KELVA_TEST_DOMAIN"]

POWER = {"SubsystemName": "Power", "ComponentName": "Battery", "Measure": "Voltage", "Nature": "Low",
         "AlarmDescription": "below 22 V"}
POWER_TEXT = "[SubsystemName: Power, ComponentName: Battery, Measure: Voltage, Nature: Low, AlarmDescription: below 22 V]"


def tool(*args, domain=DOMAIN, timeout=60, check=False):
    cmd = [TOOL, *args]
    if domain is not None and args and args[0] in ("ps", "echo", "hz", "bw", "call", "pub", "record", "replay"):
        cmd[2:2] = ["--domain", str(domain)]
    done = subprocess.run(cmd, capture_output=True, text=True, timeout=timeout)
    if check:
        assert done.returncode == 0, f"{cmd}: {done.returncode}\n{done.stdout}\n{done.stderr}"
    return done


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


def raise_alarm(condition=POWER, domain=DOMAIN):
    tool("call", "M_Alert.CmdRaiseAlarm", json.dumps({"Condition": condition}), domain=domain, check=True)


def test_list_selects_by_glob_and_shows_topics_keys_and_qos():
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


def test_show_expands_nested_types_and_names_the_signature():
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


def test_call_reaches_the_service_and_echo_shows_state_and_disposals(service):
    raise_alarm()
    assert wait_for(lambda: service.matching(f"service: raise {POWER_TEXT} -> ALM-1"))
    # A late echo still sees the current state of the transient-local reports.
    late = tool("echo", "--json", "-n", "2", "--duration", "20", "M_Alert.IClient.ReportAlarmLog",
                "M_Alert.IClient.ReportAlertStatus", check=True)
    seen = {s["operation"]: s for s in map(json.loads, late.stdout.splitlines())}
    log = seen["M_Alert.IClient.ReportAlarmLog"]
    assert log["dispose"] is False and log["value"]["KeyAlarmId"] == "ALM-1"
    assert log["value"]["Alarm"]["Condition"] == POWER and log["value"]["Alarm"]["Status"] == "Active"
    assert log["sender"] and seen["M_Alert.IClient.ReportAlertStatus"]["value"]["Status"]["NumberOfActiveWarningAlarms"] == 1
    # Disposal: clearing the alarm disposes its log.
    watcher = Process([TOOL, "echo", "--domain", DOMAIN, "--keys", "M_Alert.IClient.ReportAlarmLog"], stdin=False)
    assert wait_for(lambda: watcher.matching("ReportAlarmLog"))  # the current state first
    sent = tool("call", "M_Alert.CmdClearAlarm", '{"AlarmIdList": ["ALM-1"]}', check=True).stdout
    # What is printed is what went out: the tool's own actor is the sender.
    assert re.match(r"sent M_Alert\.IService\.CmdClearAlarm \[kelva_sending_actor: [^,\s]+, AlarmIdList: ", sent), sent
    assert wait_for(lambda: watcher.matching("DISPOSED"))
    watcher.stop()
    disposed = watcher.matching("DISPOSED")[0]
    assert '"KeyAlarmId":"ALM-1"' in disposed and "M_Alert.IClient.ReportAlarmLog from " in disposed


@pytest.mark.parametrize("arguments, message", [
    ('{"Condition": {', "not valid JSON"),
    ('{"Condition": {"Subsystem": "Power"}}', "Condition.Subsystem: no such member in M_Alert::AlarmConditionInfoType"),
    ('{"Condition": {"SubsystemName": 12}}', "Condition.SubsystemName: expected a string, got 12"),
    ('{"Condition": []}', "Condition: expected an object"),
    ('{"Extra": 1}', "Extra: no such member"),
])
def test_call_refuses_bad_arguments_and_sends_nothing(service, arguments, message):
    done = tool("call", "M_Alert.CmdRaiseAlarm", arguments)
    assert done.returncode == 2 and message in done.stderr, done.stderr
    # What follows arrives first: nothing was sent before it.
    raise_alarm({**POWER, "Nature": "after"})
    assert wait_for(lambda: service.matching("service: raise"))
    assert len(service.matching("service: raise")) == 1 and "after" in service.matching("service: raise")[0]


def test_call_checks_enumerations_bounds_and_operations():
    bad_enum = tool("call", "M_Alert.ReportAlarmLog", '{"KeyAlarmId": "A", "Alarm": {"Status": "Burning"}}')
    assert bad_enum.returncode == 2 and "Alarm.Status: expected a literal of M_Alert::AlarmStatusKind (Unknown, Inactive, Active)" in bad_enum.stderr
    two = tool("call", "M_Alert.ReportAlarmLog", '{"KeyAlarmId": "A", "Alarm": {"TimeAcknowledged": [{}, {}]}}')
    assert two.returncode == 2 and "Alarm.TimeAcknowledged: optional holds 2 elements, at most 1" in two.stderr
    assert tool("call", "M_Alert.CmdNothing").returncode == 2
    assert tool("call", "M_Alert.CmdRaiseAlarm", "{}", "--dispose").returncode == 2
    assert tool("frobnicate").returncode == 2


def test_hz_and_bw_measure_a_stream():
    stream = subprocess.Popen([TOOL, "call", "--domain", DOMAIN, "-q", "--rate", "100", "--count", "800",
                               "M_Alert.CmdRaiseAlarm", json.dumps({"Condition": POWER})])
    try:
        hz = tool("hz", "--json", "--duration", "4", "--window", "2", "M_Alert.IService.CmdRaiseAlarm", check=True)
        bw = tool("bw", "--json", "--duration", "3", "--window", "2", "M_Alert.IService.CmdRaiseAlarm", check=True)
    finally:
        stream.wait(timeout=60)
    last = json.loads(hz.stdout.splitlines()[-1])
    assert last["topic"] == "M_Alert_IService_CmdRaiseAlarm" and 70 < last["hz"] < 130, last
    band = json.loads(bw.stdout.splitlines()[-1])
    assert band["min_bytes"] == band["max_bytes"] > 0  # every sample the same serialized size
    assert band["bytes_per_s"] == pytest.approx(band["hz"] * band["mean_bytes"], rel=0.05)


def test_ps_shows_actors_with_their_side_operations_and_peers(service):
    assert wait_for(lambda: service.matching("service:") or True)
    listener = Process([TOOL, "echo", "--domain", DOMAIN, "M_Alert.IClient.ReportAlertStatus"], stdin=False)
    try:
        out = json.loads(tool("ps", "--json", "--wait", "3", check=True).stdout)
    finally:
        listener.stop()
    actor = next(a for a in out["actors"] if a["name"] == "alert-service")
    assert actor["module"] == "M_Alert" and actor["side"] == "Service" and actor["version"] == "1.0.0"
    assert "CmdRaiseAlarm" in actor["reads"] and "ReportAlertStatus" in actor["sends"]
    assert actor["sends"]["ReportAlertStatus"]["readers"] >= 1  # the echo above
    assert any(p["program"].endswith("alert_demo") for p in out["processes"])
    assert out["mismatches"] == []


def test_record_info_and_replay_into_a_fresh_domain(service, second_domain, tmp_path):
    path = tmp_path / "drive.mcap"
    recorder = Process([TOOL, "record", "--domain", DOMAIN, "-o", str(path), "M_Alert"], stdin=False)
    assert wait_for(lambda: recorder.matching("recording"))
    time.sleep(1.0)  # the recorder's readers are matched
    conditions = [{**POWER, "Nature": f"n{i}"} for i in range(3)]
    for c in conditions:
        raise_alarm(c)
    assert wait_for(lambda: len(service.matching("service: raise")) == 3), service.lines
    tool("call", "M_Alert.CmdClearAlarm", '{"AlarmIdList": ["ALM-2"]}', check=True)
    assert wait_for(lambda: service.matching("service: clear ALM-2"))
    time.sleep(1.0)
    assert recorder.stop() == 0
    assert recorder.matching("recorded ")

    info = json.loads(tool("info", "--json", str(path), check=True).stdout)
    by_topic = {(c["topic"], c["metadata"]["sample"]): c for c in info["channels"]}
    assert by_topic[("M_Alert_IService_CmdRaiseAlarm", "data")]["messages"] == 3
    assert by_topic[("M_Alert_IService_CmdClearAlarm", "data")]["messages"] == 1
    assert by_topic[("M_Alert_IClient_ReportAlarmLog", "dispose")]["messages"] == 1
    assert by_topic[("M_Alert_IClient_ReportAlarmLog", "data")]["messages"] == 3
    assert info["indexed"] is True and info["compression"] == ["zstd"]
    # The writer of a channel's first sample, while it is still there (a one-shot call's is gone quickly).
    assert by_topic[("M_Alert_IClient_ReportAlarmLog", "data")]["metadata"]["writer_guid"]

    # An independent reader decodes every message from the file's own schemas.
    if MCAP_CHECK:
        decoded = subprocess.run(["node", MCAP_CHECK, str(path)], capture_output=True, text=True, timeout=120)
        assert decoded.returncode == 0, decoded.stderr
        raised = [json.loads(l)["value"] for l in decoded.stdout.splitlines() if '"M_Alert_IService_CmdRaiseAlarm"' in l]
        assert [r["Condition"] for r in raised] == conditions

    # Replay into another domain: a real service there receives exactly the recorded commands.
    other = Process([ALERT_DEMO, "service", second_domain, "300"], stdin=False)
    try:
        time.sleep(1.0)
        done = tool("replay", "--rate", "4", "--topics", "M_Alert.IService.*", str(path), domain=second_domain, check=True)
        assert "replayed 4 messages" in done.stdout
        assert wait_for(lambda: len(other.matching("service: raise")) == 3 and other.matching("service: clear")), other.lines
        raised = other.matching("service: raise")
        assert [line.split(" -> ")[0] for line in raised] == [
            "service: raise " + POWER_TEXT.replace("Nature: Low", f"Nature: n{i}") for i in range(3)]
        assert other.matching("service: clear ALM-2")
    finally:
        other.stop()


def test_replayed_reports_arrive_with_their_disposals(tmp_path, second_domain, service):
    path = tmp_path / "reports.mcap"
    recorder = Process([TOOL, "record", "--domain", DOMAIN, "-o", str(path), "M_Alert.IClient.ReportAlarmLog"], stdin=False)
    assert wait_for(lambda: recorder.matching("recording"))
    time.sleep(1.0)
    raise_alarm()
    tool("call", "M_Alert.CmdClearAlarm", '{"AlarmIdList": ["ALM-1"]}', check=True)
    assert wait_for(lambda: service.matching("service: clear ALM-1"))
    time.sleep(1.0)
    recorder.stop()
    watcher = Process([TOOL, "echo", "--domain", second_domain, "--json", "M_Alert.IClient.ReportAlarmLog"], stdin=False)
    try:
        time.sleep(1.0)
        tool("replay", str(path), domain=second_domain, check=True)
        assert wait_for(lambda: len(watcher.matching("ReportAlarmLog")) == 2), watcher.lines
        first, second = (json.loads(l) for l in watcher.matching("ReportAlarmLog"))
        assert first["dispose"] is False and first["value"]["Alarm"]["Condition"] == POWER
        assert second["dispose"] is True and second["value"]["KeyAlarmId"] == "ALM-1"
        assert first["sender"] == second["sender"] != ""
    finally:
        watcher.stop()


def test_bad_recordings_are_refused_and_nothing_is_overwritten(service, tmp_path):
    path = tmp_path / "good.mcap"
    recorder = Process([TOOL, "record", "--domain", DOMAIN, "-o", str(path), "--compression", "lz4", "M_Alert"], stdin=False)
    assert wait_for(lambda: recorder.matching("recording"))
    time.sleep(1.0)
    raise_alarm()
    assert wait_for(lambda: service.matching("service: raise"))
    time.sleep(0.5)
    recorder.stop()
    good = path.read_bytes()
    assert json.loads(tool("info", "--json", str(path), check=True).stdout)["compression"] == ["lz4"]

    truncated = tmp_path / "truncated.mcap"
    truncated.write_bytes(good[: len(good) // 2])
    corrupt = tmp_path / "corrupt.mcap"
    flipped = bytearray(good)
    for i in range(40, min(len(flipped) - 40, 400)):
        flipped[i] ^= 0x5A
    corrupt.write_bytes(bytes(flipped))
    for bad in (truncated, corrupt, tmp_path / "missing.mcap"):
        for verb in ("info", "replay"):
            done = tool(verb, str(bad))
            assert done.returncode == 2, (verb, bad, done.stdout, done.stderr)
            assert str(bad) in done.stderr
    assert len(service.matching("service: raise")) == 1  # the bad replays sent nothing

    again = tool("record", "-o", str(path), "--duration", "1", "M_Alert")
    assert again.returncode == 2 and "exists" in again.stderr
    assert path.read_bytes() == good


def test_a_recording_never_closed_is_refused(service, tmp_path):
    path = tmp_path / "killed.mcap"
    recorder = Process([TOOL, "record", "--domain", DOMAIN, "-o", str(path), "M_Alert"], stdin=False)
    assert wait_for(lambda: recorder.matching("recording"))
    time.sleep(1.0)
    raise_alarm()
    assert wait_for(lambda: service.matching("service: raise"))
    time.sleep(1.0)
    recorder.proc.send_signal(signal.SIGKILL)
    recorder.finish()
    assert path.exists()
    for verb in ("info", "replay"):
        done = tool(verb, str(path))
        assert done.returncode == 2, (verb, done.stdout, done.stderr)
        assert done.stderr.startswith(f"vantrel: {path}: "), done.stderr
    assert len(service.matching("service: raise")) == 1  # the refused replay sent nothing


def test_replay_starts_into_the_recording_and_loops_until_interrupted(service, second_domain, tmp_path):
    path = tmp_path / "two.mcap"
    recorder = Process([TOOL, "record", "--domain", DOMAIN, "-o", str(path), "M_Alert.IService.*"], stdin=False)
    assert wait_for(lambda: recorder.matching("recording"))
    time.sleep(1.0)
    raise_alarm({**POWER, "Nature": "first"})
    time.sleep(2.0)
    raise_alarm({**POWER, "Nature": "second"})
    assert wait_for(lambda: len(service.matching("service: raise")) == 2)
    time.sleep(1.0)
    assert recorder.stop() == 0

    other = Process([ALERT_DEMO, "service", second_domain, "300"], stdin=False)
    try:
        time.sleep(1.0)
        done = tool("replay", "--rate", "0", "--start", "1", str(path), domain=second_domain, check=True)
        assert "replayed 1 messages" in done.stdout
        assert wait_for(lambda: other.matching("service: raise"))
        assert ["second" in line for line in other.matching("service: raise")] == [True]

        looping = Process([TOOL, "replay", "--domain", second_domain, "--rate", "4", "--loop", str(path)], stdin=False)
        assert wait_for(lambda: len(other.matching("service: raise")) >= 7, 60), other.lines
        assert looping.stop() == 0
        replayed = int(re.search(r"replayed (\d+) messages", "\n".join(looping.lines)).group(1))
        assert replayed >= 6, looping.report()
        natures = [re.search(r"Nature: (\w+)", line).group(1) for line in other.matching("service: raise")[1:]]
        assert natures[:6] == ["first", "second"] * 3
    finally:
        other.stop()


def test_the_tool_follows_the_topic_prefix_and_qos_rules_of_its_configuration(tmp_path):
    # No prefix removed: the topics keep "VendorData_"; the alarm log best-effort and volatile, which a
    # reader asking the defaults (reliable, transient-local) would not match.
    config = tmp_path / "kelva.toml"
    config.write_text('[topics]\nprefix = ""\n\n[[qos]]\nmatch = "*_ReportAlarmLog"\nreliability = "best_effort"\n'
                      'durability = "volatile"\n')
    env = {**os.environ, "KELVA_CONFIG": str(config)}
    listed = subprocess.run([TOOL, "list", "--json", "M_Alert.IClient.ReportAlarmLog"], capture_output=True,
                            text=True, env=env, timeout=60)
    entry = json.loads(listed.stdout)
    assert entry["topic"] == "VendorData_M_Alert_IClient_ReportAlarmLog"
    assert entry["qos"].startswith("best-effort, volatile"), entry["qos"]

    service = Process([ALERT_DEMO, "service", DOMAIN, "300"], env=env, stdin=False)
    echo = Process([TOOL, "echo", "--domain", DOMAIN, "--json", "M_Alert.IClient.ReportAlarmLog"], env=env, stdin=False)
    try:
        time.sleep(1.0)
        called = subprocess.run([TOOL, "call", "--domain", DOMAIN, "M_Alert.CmdRaiseAlarm",
                                 json.dumps({"Condition": POWER})], capture_output=True, text=True, env=env, timeout=60)
        assert called.returncode == 0, called.stderr
        assert wait_for(lambda: service.matching("service: raise")), service.report()
        assert wait_for(lambda: echo.matching("ReportAlarmLog")), echo.report()
        log = json.loads(echo.matching("ReportAlarmLog")[0])
        assert log["value"]["KeyAlarmId"] == "ALM-1" and log["value"]["Alarm"]["Condition"] == POWER
    finally:
        echo.stop()
        service.stop()
