"""Python client, C++ service (examples/alert): values both ways, disposals, the same text form."""

import os
import subprocess

import pytest

import vantrel
from conftest import wait_until
from recording import Recorder

M_Alert = pytest.importorskip("vantrel.M_Alert")
from vantrel import M_Common  # noqa: E402


def test_python_client_with_the_cpp_service(domain):
    service = subprocess.Popen([os.environ["VANTREL_ALERT_DEMO"], "service", str(domain), "60"],  # set by ctest
                               stdout=subprocess.PIPE, text=True)
    received = Recorder()
    condition = M_Alert.AlarmConditionInfoType("Power", "Battery", "Voltage", "Low", "battery voltage low")
    try:
        # Its first line comes once its facade exists (then its own lines do not interleave with ours).
        assert service.stdout.readline().startswith("service: running")
        callbacks = {"ReportAlarmLog": received.callback("log"), "ReportAlertStatus": received.callback("status")}
        with M_Alert.Client.create(vantrel.Session(domain), "python-console", callbacks) as client:
            client.waitUntilConnected()
            client.CmdRaiseAlarm(condition)
            assert wait_until(lambda: received.count("log") >= 1, 30), "no alarm log from the C++ service"
            alarm_id, log, dispose = received.calls("log")[0]
            assert (alarm_id, dispose) == ("ALM-1", False)
            assert log.Condition == condition
            assert log.Status is M_Alert.AlarmStatusKind.Active
            assert log.Category is M_Alert.AlarmCategoryKind.Warning
            assert log.TimeRaised.Seconds > 1_500_000_000 and log.TimeAcknowledged == []
            assert wait_until(lambda: any(s.NumberOfActiveWarningAlarms == 1 for s, _ in received.calls("status")))

            client.CmdAcknowledgeAlarm([alarm_id])
            assert wait_until(lambda: any(l.IsAcknowledged for _, l, _ in received.calls("log")), 30)
            acknowledged = next(l for _, l, _ in received.calls("log") if l.IsAcknowledged)
            assert len(acknowledged.TimeAcknowledged) == 1 and isinstance(acknowledged.TimeAcknowledged[0], M_Common.TimeType)

            client.CmdClearAlarm([alarm_id])
            assert wait_until(lambda: any(d for _, _, d in received.calls("log")), 30), "no disposal from the C++ service"
            assert [(i, d) for i, _, d in received.calls("log") if d] == [("ALM-1", True)]
            assert wait_until(lambda: received.calls("status")[-1][0].NumberOfActiveWarningAlarms == 0)
    finally:
        service.terminate()
        output, _ = service.communicate(timeout=30)
    assert f"service: raise {condition} -> ALM-1" in output, output
