"""One host's process of the multi-host tests, on the Python binding (docs/network.md):
`service DOMAIN CLIENTS`, `client DOMAIN NAME READERS` or `monitor DOMAIN CLIENTS`."""
import os
import sys
import threading
import time

import vantrel
from vantrel import M_Alert

_out = threading.Lock()


def say(text):
    with _out:
        sys.stdout.write("%s t=%.3f\n" % (text, time.monotonic() * 1000))
        sys.stdout.flush()


def received(condition):
    say("received CmdRaiseAlarm %s %s" % (condition.SubsystemName, condition.ComponentName))


REPORTS = {"ReportAlarmLog": lambda key, log, dispose: say(
               "report AlarmLog %s %s" % (key, "disposed" if dispose else log.Condition.AlarmDescription)),
           "ReportAlertStatus": lambda status, dispose: say(
               "report AlertStatus %s" % ("disposed" if dispose else status.NumberOfActiveWarningAlarms))}


def watch(kind, needed, *interfaces):
    ops = [op for op in vantrel.catalog.operations("M_Alert") if op.interface in interfaces]
    say("watch %s %d %s" % (kind, needed, " ".join("%s.%s" % (op.interface, op.name) for op in ops)))


def commands(verb, one):
    """Runs "<verb> FIRST COUNT INTERVAL_MS" on a fixed schedule until "quit" or the end of input."""
    for line in sys.stdin:
        words = line.split()
        if words == ["quit"]:
            break
        if len(words) != 4 or words[0] != verb:
            say("error unknown command: " + line.strip())
            continue
        first, count, interval_ms = (int(w) for w in words[1:])
        longest, exceptions, begin = 0, 0, time.monotonic()
        for i in range(count):
            time.sleep(max(0.0, begin + i * interval_ms / 1000 - time.monotonic()))
            try:
                t0 = time.monotonic_ns()
                one(first + i)
                longest = max(longest, (time.monotonic_ns() - t0) // 1000)
            except Exception as e:  # noqa: BLE001 (counted and said)
                exceptions += 1
                say("error %s %d: %s" % (verb, first + i, e))
        say("done %s max_us=%d exceptions=%d" % (verb, longest, exceptions))


def main(role, domain, *args):
    say("start")
    deadline = threading.Timer(float(os.environ.get("VANTREL_NODE_DEADLINE_S", "240")),
                               lambda: (say("error deadline reached"), os._exit(3)))
    deadline.daemon = True
    deadline.start()
    if role == "service":
        session = vantrel.Session(domain)
        service = M_Alert.Service.create(session, "alert-service", {"CmdRaiseAlarm": received})
        watch("Subscription", int(args[0]), "IService")
        say("ready")

        def report(value):
            condition = M_Alert.AlarmConditionInfoType("Network", "Harness", "State", "Changed", "v%d" % value)
            service.ReportAlarmLog("state", M_Alert.AlarmLogType(Status=M_Alert.AlarmStatusKind.Active, Condition=condition,
                                                                 Category=M_Alert.AlarmCategoryKind.Warning))
            service.ReportAlertStatus(M_Alert.AlertStatusType(NumberOfActiveWarningAlarms=value))
            say("reported %d" % value)
        commands("report", report)
    elif role == "client":
        name, session = args[0], vantrel.Session(domain)
        client = M_Alert.Client.create(session, name, REPORTS)
        watch("Publication", int(args[1]), "IService")  # the service and the monitor
        watch("Subscription", 1, "IClient")  # the service
        say("ready")
        commands("send", lambda seq: client.CmdRaiseAlarm(
            M_Alert.AlarmConditionInfoType(name, str(seq), "Sequence", "Test", "")))
    else:
        monitor = vantrel.MonitorSession(domain)
        with M_Alert.Service.createMonitor(monitor, {"CmdRaiseAlarm": received}), \
                M_Alert.Client.createMonitor(monitor, REPORTS):
            watch("Subscription", int(args[0]), "IService")
            watch("Subscription", 1, "IClient")
            say("ready")
            commands("none", None)


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]), *sys.argv[3:])
