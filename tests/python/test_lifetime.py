"""How facades end: during their own callbacks, in a reference cycle, and alive at interpreter exit."""

import gc
import subprocess
import sys
import textwrap
import threading
import time
import weakref

import pytest

from conftest import condition, wait_until
from recording import Recorder

M_Alert = pytest.importorskip("vantrel.M_Alert")


@pytest.fixture
def witness(sessions):
    """Another service on the first session: it keeps receiving whatever happens to its neighbours."""
    received = Recorder()
    with M_Alert.Service.create(sessions[0], "witness", {"CmdRaiseAlarm": received.callback("R")}):
        yield received


def assert_unreached(client, witness, sent, seen, expected):
    """Sends one more command: the witness gets it (`sent` in all), the ended facade does not."""
    client.CmdRaiseAlarm(condition(sent))
    assert wait_until(lambda: witness.count("R") == sent)
    time.sleep(0.2)
    assert seen == expected


ENDINGS = ["destroyed by the main thread", "destroyed by another thread", "dropped by its own callback",
           "invalidated by its own callback"]


@pytest.mark.parametrize("ending", ENDINGS)
def test_a_facade_ended_while_its_callback_runs(sessions, client, witness, ending):
    events = []
    holder = {}

    def on_raise(c):
        events.append(("start", c.SubsystemName))
        if ending == "dropped by its own callback":
            holder.clear()  # the last reference to this very facade
        elif ending == "invalidated by its own callback":
            holder["service"].invalidate()  # does not wait for itself
        time.sleep(0.5)  # the callback goes on while its facade ends
        events.append(("end", c.SubsystemName))

    holder["service"] = M_Alert.Service.create(sessions[0], "ending_service", {"CmdRaiseAlarm": on_raise})
    client.waitUntilConnected()
    client.CmdRaiseAlarm(condition(1))
    assert wait_until(lambda: events)
    if ending == "destroyed by the main thread":
        holder.clear()
    elif ending == "destroyed by another thread":
        thread = threading.Thread(target=holder.clear)
        thread.start()
        thread.join(10)
        assert not thread.is_alive()
    else:
        assert wait_until(lambda: len(events) == 2)
    # A destruction returns once the callback has finished; nothing reaches the ended facade any more.
    assert events == [("start", "S1"), ("end", "S1")]
    assert not holder or not holder.pop("service").isValid()
    assert_unreached(client, witness, 2, events, [("start", "S1"), ("end", "S1")])


def test_an_implementation_holding_its_facade_is_collected(sessions, client, witness):
    received = []

    class Service(M_Alert.IService):
        def __init__(self):
            self.facade = M_Alert.Service.create(sessions[0], "cyclic_service", self)

        def CmdRaiseAlarm(self, Condition):
            received.append(Condition)

    implementation = Service()
    facade = weakref.ref(implementation.facade)
    client.waitUntilConnected()
    client.CmdRaiseAlarm(condition(1))
    assert wait_until(lambda: len(received) == 1)
    del implementation
    gc.collect()
    assert facade() is None
    assert_unreached(client, witness, 2, received, [condition(1)])


# (what the script sets up, the session argument of its facades, what it does last)
EXIT_SCRIPTS = {
    "a callback running in a cycle through an implementation": ("""
        started = threading.Event()
        class Service(M_Alert.IService):
            def __init__(self):
                self.facade = M_Alert.Service.create(domain, "exit_service", self)
            def CmdRaiseAlarm(self, Condition):
                started.set()
                time.sleep(1.0)
        service = Service()
    """, "domain", """
        client.CmdRaiseAlarm(M_Alert.AlarmConditionInfoType("a"))
        assert started.wait(10)
    """),
    "a daemon thread sending": ("""
        def on_raise(c):
            sum(range(5000))  # holds the GIL: the dispatcher often waits for it when the interpreter ends
        service = M_Alert.Service.create(vantrel.Session(domain), "exit_service", {"CmdRaiseAlarm": on_raise})
    """, "vantrel.Session(domain)", """
        def send():
            while True:
                client.CmdRaiseAlarm(M_Alert.AlarmConditionInfoType("a"))
        threading.Thread(target=send, daemon=True).start()
        time.sleep(0.3)
    """),
}


@pytest.mark.parametrize("situation", list(EXIT_SCRIPTS))
def test_the_interpreter_exits_cleanly_with_live_facades(situation):
    setup, session, last = EXIT_SCRIPTS[situation]
    script = "import os, threading, time\nimport vantrel\nfrom vantrel import M_Alert\n" \
             "domain = int(os.environ['KELVA_TEST_DOMAIN'])\n" + textwrap.dedent(setup) + \
             f"client = M_Alert.Client.createWriteOnly({session}, 'exit_client')\nclient.waitUntilConnected()\n" + \
             textwrap.dedent(last) + "print('script done', flush=True)\n"
    # A hang at exit ends in TimeoutExpired.
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    assert "script done" in done.stdout
    for crash in ("Fatal Python error", "terminate called", "FATAL", "Segmentation fault"):
        assert crash not in done.stderr, done.stderr
