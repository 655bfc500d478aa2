"""Values that cannot go on the wire: the send raises naming the operation and the member path, and nothing
is sent (checked for every leaf of every operation, and over DDS with M_Alert)."""

import pytest

from vantrel import M_Common, catalog
from conftest import condition, wait_until
from recording import Recorder
from samples import INTEGER_RANGES, arguments, with_first_leaf

OPERATIONS = [op for m in catalog.modules() for op in catalog.operations(m)]

# (kind of leaf, replacement, exception, what the message says after the path)
CASES = [
    ("string", lambda v: 17, TypeError, "expected str, got int"),
    ("string", lambda v: b"bytes", TypeError, "expected str, got bytes"),
    ("string", lambda v: "a\0b", ValueError, "contains a NUL character"),
    ("string", lambda v: "\ud800", ValueError, "cannot be encoded as UTF-8"),
    ("boolean", lambda v: 1, TypeError, "expected bool, got int"),
    ("double", lambda v: "1.5", TypeError, "expected float, got str"),
    ("double", lambda v: True, TypeError, "expected float, got bool"),
    ("double", lambda v: 10**400, ValueError, "is out of range for double"),
    ("enum", lambda v: v.name, TypeError, "got str"),
    ("enum", lambda v: 2**31, ValueError, "is out of range for a 32-bit enumeration"),
    ("enum", lambda v: list(type(v) is M_Common.Availability and M_Common.ColourScheme or M_Common.Availability)[-1],
     TypeError, ", got M_Common."),
    ("bytes", lambda v: "text", TypeError, "expected bytes or list, got str"),
    ("optional", lambda v: v + v, ValueError, "optional holds 2 elements, at most 1"),
    ("struct", lambda v: {}, TypeError, "got dict"),
    ("struct", lambda v: None, TypeError, "got NoneType"),
] + [case for kind, (low, high) in INTEGER_RANGES.items() for case in (
    (kind, lambda v, high=high: high + 1, ValueError, f"is out of range for {kind} ({low} to {high})"),
    (kind, lambda v, low=low: low - 1, ValueError, f"is out of range for {kind}"),
    (kind, lambda v: 1.0, TypeError, "expected int, got float"))]


@pytest.mark.parametrize("kind, replace, error, problem", CASES, ids=[f"{c[0]}-{i}" for i, c in enumerate(CASES)])
def test_every_operation_refuses_a_bad_leaf_naming_its_path(kind, replace, error, problem):
    checked = 0
    for op in OPERATIONS:
        args, path = with_first_leaf(op, arguments(op, 9), kind, replace)
        if path is None:
            continue
        with pytest.raises(error) as raised:
            op.wireText(args)
        message = str(raised.value)
        assert message.startswith(f"{op.module}.{op.name}: {path}: "), message
        assert problem in message, message
        checked += 1
    if not checked:
        pytest.skip(f"no operation of this build has a leaf of kind {kind}")


M_Alert = pytest.importorskip("vantrel.M_Alert")


def test_nothing_is_sent_when_a_value_is_refused_or_the_facade_is_invalid(sessions):
    received = Recorder()
    service = M_Alert.Service.create(sessions[0], "errors_service",
                                     {op: received.callback(op) for op in ("CmdRaiseAlarm", "CmdAcknowledgeAlarm")})
    client = M_Alert.Client.create(sessions[1], "errors_client",
                                   {"ReportAlarmLog": received.callback("ReportAlarmLog")})
    invalid = M_Alert.Client.createWriteOnly(sessions[1], "invalid_client")
    with service, client:
        client.waitUntilConnected()
        invalid.waitUntilConnected()
        invalid.invalidate()
        assert not invalid.isValid()
        refused = [
            (TypeError, "M_Alert.CmdRaiseAlarm: Condition: expected M_Alert.AlarmConditionInfoType, got M_Alert.AlarmLogType",
             lambda: client.CmdRaiseAlarm(M_Alert.AlarmLogType())),
            (ValueError, "M_Alert.ReportAlarmLog: Alarm.TimeAcknowledged: optional holds 2 elements, at most 1",
             lambda: service.ReportAlarmLog("ALM-1", M_Alert.AlarmLogType(TimeAcknowledged=[M_Common.TimeType()] * 2),
                                            dispose=True)),
            (ValueError, "M_Alert.ReportAlarmLog: Alarm.TimeRaised.Nanoseconds: 2147483648 is out of range for int32",
             lambda: service.ReportAlarmLog("ALM-1", M_Alert.AlarmLogType(TimeRaised=M_Common.TimeType(1, 2**31)))),
            (RuntimeError, "", lambda: invalid.CmdRaiseAlarm(condition(2))),
            (TypeError, "", lambda: client.CmdRaiseAlarm()),  # the operation's arguments are required
        ]
        for error, message, send in refused:
            with pytest.raises(error) as raised:
                send()
            assert str(raised.value).startswith(message), str(raised.value)
        # What follows on the same topics arrives alone: nothing was sent before it.
        good = condition(1)
        client.CmdRaiseAlarm(good)
        client.CmdAcknowledgeAlarm(["ALM-1"])
        service.ReportAlarmLog("ALM-2", M_Alert.AlarmLogType(IsSuppressed=True))
        assert wait_until(lambda: received.reached(["CmdRaiseAlarm", "CmdAcknowledgeAlarm", "ReportAlarmLog"], 1))
        assert received.calls("CmdRaiseAlarm") == [(good,)]
        assert received.calls("CmdAcknowledgeAlarm") == [(["ALM-1"],)]
        assert received.calls("ReportAlarmLog") == [("ALM-2", M_Alert.AlarmLogType(IsSuppressed=True), False)]
