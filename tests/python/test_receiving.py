"""Receiving: implementations, callback maps, call information, read-only and monitor facades, raising
callbacks, and sending from several threads."""

import threading

import pytest

import vantrel
from conftest import condition, wait_until
from recording import Recorder

M_Alert = pytest.importorskip("vantrel.M_Alert")


class Raising(M_Alert.IService):
    def __init__(self):
        self.received = []

    def CmdRaiseAlarm(self, Condition):
        self.received.append(Condition)


def test_implementations_and_callback_maps_receive_what_they_read(sessions, client, log_lines):
    plain, with_methods = Raising(), Raising()
    order, cleared, selected, infos = [], Recorder(), Recorder(), []
    holder = {}

    def first(c):
        infos.append(holder["map"].callbackInfo())
        order.append(("first", c.SubsystemName))

    def on_clear(ids):
        if ids == ["bad"]:
            raise ValueError("the first clear is refused")
        cleared["clear"].append((ids,))

    # Every operation of a map without `methods` is read: CmdAcknowledgeAlarm has no entry.
    by_map = {"CmdRaiseAlarm": [first, lambda c: order.append(("second", c.SubsystemName))], "CmdClearAlarm": on_clear}
    by_selected_map = {op: selected.callback(op) for op in ("CmdRaiseAlarm", "CmdClearAlarm")}
    with M_Alert.Service.create(sessions[0], "impl_service", plain) as plain_service, \
            M_Alert.Service.create(sessions[0], "methods_service", with_methods,
                                   methods=["CmdRaiseAlarm", "CmdClearAlarm"]) as methods_service, \
            M_Alert.Service.create(sessions[0], "map_service", by_map) as map_service, \
            M_Alert.Service.create(sessions[0], "selected_service", by_selected_map,
                                   methods=["CmdClearAlarm"]) as selected_service:
        holder["map"] = map_service
        assert plain_service.actorInfo().methodsRead == ["CmdRaiseAlarm"]
        assert sorted(methods_service.actorInfo().methodsRead) == ["CmdClearAlarm", "CmdRaiseAlarm"]
        assert selected_service.actorInfo().methodsRead == ["CmdClearAlarm"]
        assert not map_service.callbackInfo()
        client.waitUntilConnected()
        client.CmdRaiseAlarm(condition(3))
        client.CmdAcknowledgeAlarm(["ALM-3"])
        client.CmdClearAlarm(["bad"])
        client.CmdClearAlarm(["ALM-3"])
        assert wait_until(lambda: plain.received == with_methods.received == [condition(3)] and len(order) == 2
                          and cleared.count("clear") == 1 and selected.count("CmdClearAlarm") == 2)
        assert order == [("first", "S3"), ("second", "S3")]
        assert cleared.calls("clear") == [(["ALM-3"],)]
        assert selected.count("CmdRaiseAlarm") == 0
        # The call information names the sender and the operation during a call only.
        info = infos[0]
        assert (info.senderId, info.operation) == (client.actorInfo().actorId, "CmdRaiseAlarm")
        assert info.actorId == map_service.actorInfo().actorId and info.receptionTime > 0
        assert not map_service.callbackInfo()
        assert wait_until(lambda: "No callback found for CmdAcknowledgeAlarm" in log_lines())
        assert wait_until(lambda: "default implementation called: M_Alert::IService::CmdClearAlarm. "
                                  "Forgot to override this method?" in log_lines())
        # A raising callback is logged with its traceback, and the dispatcher went on to the next clear.
        log = log_lines()
        assert any("[error]" in line and "M_Alert::IService::CmdClearAlarm: the Python callback raised an exception"
                   in line for line in log.splitlines()), log
        assert "Traceback (most recent call last)" in log and "ValueError: the first clear is refused" in log
        assert "default implementation called: M_Alert::IService::CmdRaiseAlarm" not in log

        def send(t):
            for i in range(50):
                client.CmdRaiseAlarm(condition(t * 1000 + i))

        threads = [threading.Thread(target=send, args=(t,)) for t in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        # Sent from several threads at once, each command arrives once.
        assert wait_until(lambda: len(plain.received) == 201, 20)
        names = sorted(c.SubsystemName for c in plain.received[1:])
        assert names == sorted(f"S{t * 1000 + i}" for t in range(4) for i in range(50))


def test_creation_refuses_what_it_cannot_use_and_read_only_and_monitor_facades_receive(domain, sessions):
    with pytest.raises(ValueError, match="no operation CmdRaiseAlarmTypo in M_Alert::IService"):
        M_Alert.Service.create(sessions[0], "bad", {"CmdRaiseAlarmTypo": print})
    with pytest.raises(TypeError, match="expected an implementation of it or a dict of callbacks, got Raising"):
        M_Alert.Client.create(sessions[0], "bad", Raising())
    with pytest.raises(TypeError, match="expected a callable"):
        M_Alert.Service.create(sessions[0], "bad", {"CmdRaiseAlarm": [print, 3]})
    with pytest.raises(ValueError, match="no operation Nope"):
        M_Alert.Service.create(sessions[0], "bad", {}, methods=["Nope"])
    with pytest.raises(TypeError, match="MonitorSession"):
        M_Alert.Client.createReadOnly(sessions[0], "bad", {})
    with pytest.raises(TypeError, match="vantrel.Session"):
        M_Alert.Client.createWriteOnly("seven", "bad")
    with M_Alert.Client.createWriteOnly(domain, "factory_client") as c:  # a number: the factory's session of it
        assert c.actorInfo().domainId == domain
        assert vantrel.getSession(domain) is vantrel.getSession(domain)
    monitor = vantrel.MonitorSession(domain)
    with pytest.raises(ValueError, match="would receive nothing"):
        M_Alert.Service.createMonitor(monitor, M_Alert.IService())
    by_name, by_all = Recorder(), Recorder()
    read_only = M_Alert.Client.createReadOnly(monitor, "read_only_client", {"ReportAlertStatus": by_name.callback("R")})
    watching = M_Alert.Client.createMonitor(monitor, {"ReportAlertStatus": by_all.callback("R")}, methods=["ReportAlertStatus"])
    service = M_Alert.Service.createWriteOnly(sessions[0], "monitored_service")
    with read_only, watching, service:
        assert read_only.isValid() and watching.isValid()
        status = M_Alert.AlertStatusType(NumberOfActiveWarningAlarms=3)
        service.ReportAlertStatus(status)
        assert wait_until(lambda: by_name.count("R") >= 1 and by_all.count("R") >= 1)
        assert by_name.calls("R")[0] == by_all.calls("R")[0] == (status, False)
        assert not hasattr(read_only, "ReportAlertSettings")  # a Client sends IService operations only
    assert not read_only.isValid() and not watching.isValid()
    read_only.invalidate()  # idempotent
