"""Receiving in Python: implementations (what a subclass overrides is read), callback maps (a callable or a
list of callables per operation, `methods` selecting what is read), the call information during a call,
read-only and monitoring facades, exceptions raised by callbacks (logged with their traceback, the
dispatcher goes on), and sending from several Python threads at once."""

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


def test_an_implementation_receives_what_it_overrides(sessions, client, log_lines):
    implementation = Raising()
    with M_Alert.Service.create(sessions[0], "impl_service", implementation) as service:
        assert service.actorInfo().methodsRead == ["CmdRaiseAlarm"]
        client.waitUntilConnected()
        client.CmdRaiseAlarm(condition(1))
        client.CmdClearAlarm(["ALM-1"])  # not overridden: not read
        assert wait_until(lambda: implementation.received == [condition(1)])
    assert "default implementation called" not in log_lines()


def test_methods_given_with_an_implementation_reach_the_default_body(sessions, client, log_lines):
    implementation = Raising()
    with M_Alert.Service.create(sessions[0], "impl_service", implementation,
                                methods=["CmdRaiseAlarm", "CmdClearAlarm"]):
        client.waitUntilConnected()
        client.CmdClearAlarm(["ALM-1"])
        client.CmdRaiseAlarm(condition(2))
        assert wait_until(lambda: implementation.received == [condition(2)])
        assert wait_until(lambda: "default implementation called: M_Alert::IService::CmdClearAlarm. "
                                  "Forgot to override this method?" in log_lines())


def test_a_callback_map_calls_every_callable_of_an_entry_in_order(sessions, client):
    order = []
    received = Recorder()
    callbacks = {"CmdRaiseAlarm": [lambda c: order.append(("first", c.SubsystemName)),
                                   lambda c: order.append(("second", c.SubsystemName))],
                 "CmdClearAlarm": received.callback("CmdClearAlarm")}
    with M_Alert.Service.create(sessions[0], "map_service", callbacks):
        client.waitUntilConnected()
        client.CmdRaiseAlarm(condition(3))
        client.CmdClearAlarm(["ALM-3"])
        assert wait_until(lambda: len(order) == 2 and received.count("CmdClearAlarm") == 1)
        assert order == [("first", "S3"), ("second", "S3")]
        assert received.calls("CmdClearAlarm") == [(["ALM-3"],)]


def test_a_read_operation_without_an_entry_is_logged(sessions, client, log_lines):
    received = Recorder()
    with M_Alert.Service.create(sessions[0], "map_service", {"CmdClearAlarm": received.callback("CmdClearAlarm")}):
        client.waitUntilConnected()
        client.CmdRaiseAlarm(condition(4))
        client.CmdClearAlarm(["ALM-4"])
        assert wait_until(lambda: received.count("CmdClearAlarm") == 1)
        assert wait_until(lambda: "No callback found for CmdRaiseAlarm" in log_lines())


def test_methods_select_what_a_map_reads(sessions, client):
    received = Recorder()
    callbacks = {"CmdRaiseAlarm": received.callback("CmdRaiseAlarm"), "CmdClearAlarm": received.callback("CmdClearAlarm")}
    with M_Alert.Service.create(sessions[0], "map_service", callbacks, methods=["CmdClearAlarm"]) as service:
        assert service.actorInfo().methodsRead == ["CmdClearAlarm"]
        client.waitUntilConnected()
        client.CmdRaiseAlarm(condition(5))
        client.CmdClearAlarm(["ALM-5"])
        assert wait_until(lambda: received.count("CmdClearAlarm") == 1)
        assert received.count("CmdRaiseAlarm") == 0


def test_callback_info_names_the_sender_and_the_operation_during_a_call_only(sessions, client):
    seen = []
    holder = {}

    def on_raise(c):
        seen.append(holder["service"].callbackInfo())

    with M_Alert.Service.create(sessions[0], "info_service", {"CmdRaiseAlarm": on_raise}) as service:
        holder["service"] = service
        assert not service.callbackInfo()
        client.waitUntilConnected()
        client.CmdRaiseAlarm(condition(6))
        assert wait_until(lambda: len(seen) == 1)
        info = seen[0]
        assert info.senderId == client.actorInfo().actorId
        assert info.operation == "CmdRaiseAlarm"
        assert info.actorId == service.actorInfo().actorId
        assert info.receptionTime > 0
        assert not service.callbackInfo()


def test_an_exception_in_a_callback_is_logged_and_the_dispatcher_goes_on(sessions, client, log_lines):
    received = []

    def on_raise(c):
        if c.SubsystemName == "S7":
            raise ValueError("the first alarm is refused")
        received.append(c)

    with M_Alert.Service.create(sessions[0], "raising_service", {"CmdRaiseAlarm": on_raise}):
        client.waitUntilConnected()
        client.CmdRaiseAlarm(condition(7))
        client.CmdRaiseAlarm(condition(8))
        assert wait_until(lambda: received == [condition(8)])
        log = log_lines()
        assert "M_Alert::IService::CmdRaiseAlarm: the Python callback raised an exception" in log
        assert "Traceback (most recent call last)" in log
        assert "ValueError: the first alarm is refused" in log
        assert "[error]" in log


def test_read_only_and_monitor_facades_receive(domain, sessions):
    monitor = vantrel.MonitorSession(domain)
    by_name, by_all = Recorder(), Recorder()
    read_only = M_Alert.Client.createReadOnly(monitor, "read_only_client", {"ReportAlertStatus": by_name.callback("R")})
    watching = M_Alert.Client.createMonitor(monitor, {"ReportAlertStatus": by_all.callback("R")}, methods=["ReportAlertStatus"])
    service = M_Alert.Service.createWriteOnly(sessions[0], "monitored_service")
    with read_only, watching, service:
        status = M_Alert.AlertStatusType(NumberOfActiveWarningAlarms=3)
        service.ReportAlertStatus(status)
        assert wait_until(lambda: by_name.count("R") >= 1 and by_all.count("R") >= 1)
        assert by_name.calls("R")[0] == (status, False)
        assert by_all.calls("R")[0] == (status, False)
        assert not hasattr(read_only, "ReportAlertSettings")  # a Client sends IService operations only
    assert not read_only.isValid() and not watching.isValid()


def test_creation_refuses_what_it_cannot_use(sessions, domain):
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
    with pytest.raises(ValueError, match="would receive nothing"):
        M_Alert.Service.createMonitor(vantrel.MonitorSession(domain), M_Alert.IService())


def test_a_domain_number_stands_for_the_session_of_the_factory(domain):
    with M_Alert.Client.createWriteOnly(domain, "factory_client") as c:
        assert c.actorInfo().domainId == domain
        assert vantrel.getSession(domain) is vantrel.getSession(domain)


def test_sending_from_several_threads(sessions):
    received = Recorder()
    with M_Alert.Service.create(sessions[0], "threads_service", {"CmdRaiseAlarm": received.callback("CmdRaiseAlarm")}), \
            M_Alert.Client.createWriteOnly(sessions[1], "threads_client") as client:
        client.waitUntilConnected()

        def send(t):
            for i in range(50):
                client.CmdRaiseAlarm(condition(t * 1000 + i))

        threads = [threading.Thread(target=send, args=(t,)) for t in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        assert wait_until(lambda: received.count("CmdRaiseAlarm") == 200, 20)
        names = sorted(c.SubsystemName for (c,) in received.calls("CmdRaiseAlarm"))
        assert names == sorted(f"S{t * 1000 + i}" for t in range(4) for i in range(50))
