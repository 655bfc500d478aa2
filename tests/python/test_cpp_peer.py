"""Python talking to a C++ process both ways: the alert demo (examples/alert) as the service of a Python client,
and as the client of a Python service. Values cross in both directions, disposals included, and the C++
program's text form of what it received equals Python's of what was sent."""

import os
import subprocess
import threading
import time

import pytest

import vantrel
from conftest import wait_until
from recording import Recorder

M_Alert = pytest.importorskip("vantrel.M_Alert")
from vantrel import M_Common  # noqa: E402


@pytest.fixture(scope="module")
def demo():
    return os.environ["VANTREL_ALERT_DEMO"]  # ctest sets it


def test_python_client_with_the_cpp_service(demo, domain):
    service = subprocess.Popen([demo, "service", str(domain), "60"], stdout=subprocess.PIPE, text=True)
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
            disposed = [(i, d) for i, _, d in received.calls("log") if d]
            assert disposed == [("ALM-1", True)]
            assert wait_until(lambda: received.calls("status")[-1][0].NumberOfActiveWarningAlarms == 0)
    finally:
        service.terminate()
        output, _ = service.communicate(timeout=30)
    assert f"service: raise {condition} -> ALM-1" in output, output


class AlertService(M_Alert.IService):
    """The demo's service, in Python: raised alarms get a log and a status, acknowledged ones an updated log,
    cleared ones a disposal."""

    def __init__(self, session):
        self.lock = threading.Lock()
        self.logs = {}
        self.sent = []
        # Commands may arrive before create returns: their handlers wait for the lock.
        with self.lock:
            self.facade = M_Alert.Service.create(session, "alert-service", self)

    @staticmethod
    def now():
        t = time.time_ns()
        return M_Common.TimeType(t // 1_000_000_000, t % 1_000_000_000)

    def report(self, alarm_id, log, dispose=False):
        self.facade.ReportAlarmLog(alarm_id, log, dispose)
        self.sent.append((alarm_id, log, dispose))

    def status(self):
        self.facade.ReportAlertStatus(M_Alert.AlertStatusType(NumberOfActiveWarningAlarms=len(self.logs)))

    def CmdRaiseAlarm(self, Condition):
        with self.lock:
            alarm_id = f"ALM-{len(self.sent) + 1}"
            log = M_Alert.AlarmLogType(Status=M_Alert.AlarmStatusKind.Active, Condition=Condition,
                                       Category=M_Alert.AlarmCategoryKind.Warning, TimeRaised=self.now())
            self.logs[alarm_id] = log
            self.report(alarm_id, log)
            self.status()

    def CmdAcknowledgeAlarm(self, AlarmIdList):
        with self.lock:
            for alarm_id in AlarmIdList:
                log = self.logs.get(alarm_id)
                if log:
                    log = M_Alert.AlarmLogType(log.Status, log.IsSuppressed, True, log.IsAutoAcknowledged, log.Condition,
                                               log.Category, log.TimeRaised, [self.now()])
                    self.logs[alarm_id] = log
                    self.report(alarm_id, log)

    def CmdClearAlarm(self, AlarmIdList):
        with self.lock:
            for alarm_id in AlarmIdList:
                if self.logs.pop(alarm_id, None):
                    self.report(alarm_id, M_Alert.AlarmLogType(), dispose=True)
            self.status()


def test_the_cpp_client_with_a_python_service(demo, domain):
    service = AlertService(vantrel.Session(domain))
    with service.facade:
        done = subprocess.run([demo, "client", str(domain)], capture_output=True, text=True, timeout=120)
        assert done.returncode == 0, done.stdout + done.stderr
        assert "client: all alarms cleared" in done.stdout
        with service.lock:
            sent = list(service.sent)
    written = [(i, log) for i, log, d in sent if not d]
    assert len(written) == 4 and sum(1 for *_, d in sent if d) == 2  # two raised, two acknowledged, two cleared
    for alarm_id, log in written:
        assert f"client: alarm {alarm_id} {log}" in done.stdout, done.stdout
