"""Secured applications exchange every operation of M_Alert and M_Mount; an outsider takes no part, the client
identity cannot send reports, and a secured recording replays into the secured domain."""

import json
import time

from conftest import DOMAIN, TOOL, Process, environment, peer, tool, tool_ok, wait_until


def by_operation(process, prefix):
    """{operation: [value text, ...]} of the lines starting with prefix ("received ", "sent ", ...)."""
    out = {}
    for line in process.starting(prefix):
        operation, _, value = line[len(prefix):].partition(" ")
        out.setdefault(operation, []).append(value)
    return out


def send_until(sender, receiver, expected, seconds=40.0, command="send", seen="received "):
    """Rounds of every operation of the sender's side until the receiver has received each expected one.
    Commands are volatile: a round sent before the secured match completed reaches nobody."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        rounds = len(sender.starting("sent-all"))
        sender.command(command)
        assert wait_until(lambda: len(sender.starting("sent-all")) > rounds, 30), sender.report()
        if wait_until(lambda: expected <= set(by_operation(receiver, seen)), 3):
            return
    missing = expected - set(by_operation(receiver, seen))
    raise AssertionError(f"never {seen.strip()}: {sorted(missing)}\n{receiver.report()}")


def test_secured_applications_exchange_and_nobody_else_takes_part(material, operations, tmp_path):
    display, recording = material / "display.toml", tmp_path / "alerts.mcap"
    service = peer("service", material / "mount-service.toml")
    client = peer("client", display)
    echo = [TOOL, "echo", "--domain", DOMAIN, "--duration", "120"]
    outsider = Process(echo + ["M_Alert", "M_Mount"], environment(), stdin=False)
    insider = Process(echo + ["M_Alert.IClient.*", "M_Mount.IClient.*"], environment(display), stdin=False)
    recorder = Process([TOOL, "record", "--domain", DOMAIN, "-o", recording, "--duration", "120", "M_Alert.IClient.*"],
                       environment(display), stdin=False)
    late = None
    try:
        assert service.wait_for("ready") and client.wait_for("ready"), service.report() + client.report()
        # Each report's first write waits for the recorder's reader once it exists.
        assert wait_until(lambda: any(line.startswith("recording ") for line in recorder.errors), 20), recorder.report()
        commands = {op for op, e in operations.items() if e["interface"] == "IService"}
        reports = {op for op, e in operations.items() if e["interface"] == "IClient"}
        send_until(client, service, commands)
        send_until(service, client, reports)
        disposals = {op for op in commands | reports if operations[op]["dispose"]}
        assert disposals, "the modules have keyed operations with a dispose flag"
        send_until(service, client, disposals & reports, command="dispose", seen="disposed ")
        if disposals & commands:
            send_until(client, service, disposals & commands, command="dispose", seen="disposed ")
        for sender, receiver, ops in ((client, service, commands), (service, client, reports)):
            assert not sender.starting("refused"), sender.report()
            sent, received = by_operation(sender, "sent "), by_operation(receiver, "received ")
            for op in ops:
                # Values arrive as they were sent; the marker stands in every text member.
                assert sent[op][0] in received[op], f"{op}: sent {sent[op][0]}, received {received[op]}"
        assert any("secured-exchange" in v for vs in by_operation(service, "received ").values() for v in vs)
        assert wait_until(lambda: len(insider.lines) > 0), insider.report()

        # The client identity as a sender of reports: the access control refuses its first report writer, so
        # the service facade cannot even be made and the program ends without taking part.
        impostor = peer("service-write-only", display, marker="impostor", modules=("M_Mount",))
        impostor.command("send")
        assert impostor.finish(30) != 0 and impostor.lines == [], impostor.report()
        assert "dds_create_writer(M_Mount_IClient_" in "\n".join(impostor.errors), impostor.report()
        assert "Not Allowed By Security" in "\n".join(impostor.errors), impostor.report()

        views = [Process([TOOL, "ps", "--domain", DOMAIN, "--json", "--wait", "3"], environment(config), stdin=False)
                 for config in (None, display)]
        assert [v.finish(30) for v in views] == [0, 0], views[0].report() + views[1].report()
        outside_view, inside_view = (json.loads("\n".join(v.lines)) for v in views)
        assert {service.proc.pid, client.proc.pid} <= {p["pid"] for p in inside_view["processes"]}, inside_view
        assert outside_view["processes"] == [] and outside_view["actors"] == [], outside_view
        time.sleep(3)  # what an impostor's writer that slipped through would have delivered arrives by now
        assert [line for line in client.lines if "impostor" in line] == [], client.report()

        # The replay waits for a reader of each topic: only the new client may have one by then (and the service's
        # transient-local reports must not reach it), so everything else ends first.
        for p in (outsider, insider, recorder):
            assert p.finish(interrupt=True) == 0, p.report()
        assert (service.finish(), client.finish()) == (0, 0), service.report() + client.report()
        info = json.loads(tool("info", "--json", recording).stdout)
        assert info["messages"] > 0, info
        late = peer("client", display, modules=("M_Alert",))
        assert late.wait_for("ready"), late.report()
        tool_ok("replay", "--domain", DOMAIN, "--wait-match", "10", recording, config=material / "bridge.toml")
        assert wait_until(lambda: late.starting("received M_Alert."), 20), late.report()
    finally:
        for p in (service, client, late) if late else (service, client):
            p.finish()
        for p in (outsider, insider, recorder):
            p.finish(interrupt=True)
    assert late.finish() == 0, late.report()
    assert outsider.lines == [], outsider.report()
