"""Secured applications in separate processes: they exchange every operation of M_Alert and M_Mount, an
outsider without credentials sees and receives nothing, and an identity of the client side cannot publish
what only the service side may send."""

import json
import time

from conftest import DOMAIN, TOOL, Process, peer, tool, wait_until


def by_operation(process, prefix):
    """{operation: [json value, ...]} of the lines starting with prefix ("received ", "sent ", ...)."""
    out = {}
    for line in process.starting(prefix):
        operation, _, value = line[len(prefix):].partition(" ")
        out.setdefault(operation, []).append(json.loads(value) if value else None)
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


def test_secured_service_and_client_exchange_every_operation(material, operations):
    service = peer("service", material / "mount-service.toml")
    client = peer("client", material / "display.toml")
    try:
        assert service.wait_for("ready") and client.wait_for("ready"), service.report() + client.report()
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
        assert any("secured-exchange" in json.dumps(v) for vs in by_operation(service, "received ").values() for v in vs)
    finally:
        codes = (service.finish(), client.finish())
    assert codes == (0, 0), service.report() + client.report()


def test_a_participant_without_credentials_discovers_and_receives_nothing(material):
    service = peer("service", material / "mount-service.toml")
    client = peer("client", material / "display.toml")
    outsider = Process([TOOL, "echo", "--domain", DOMAIN, "--duration", "20", "M_Alert", "M_Mount"], stdin=False)
    insider = Process([TOOL, "echo", "--domain", DOMAIN, "--duration", "20", "M_Alert.IClient.*", "M_Mount.IClient.*"],
                      config=material / "display.toml", stdin=False)
    try:
        assert service.wait_for("ready") and client.wait_for("ready"), service.report() + client.report()
        # Rounds of reports until the secured echo shows them: then the outsider had every chance too.
        for _ in range(20):
            service.command("send")
            if wait_until(lambda: len(insider.lines) > 0, 1):
                break
        assert insider.lines, insider.report()
        client.command("send")
        assert client.wait_for("sent-all") and wait_until(lambda: len(service.starting("received ")) > 0, 20)
        views = [Process([TOOL, "ps", "--domain", DOMAIN, "--json", "--wait", "3"], config=config, stdin=False)
                 for config in (None, material / "display.toml")]
        assert [v.finish(30) for v in views] == [0, 0], views[0].report() + views[1].report()
    finally:
        for p in (service, client):
            p.finish()
        for p in (outsider, insider):
            p.finish(interrupt=True)
    outside_view, inside_view = (json.loads("\n".join(v.lines)) for v in views)
    assert {service.proc.pid, client.proc.pid} <= {p["pid"] for p in inside_view["processes"]}, inside_view
    assert outside_view["processes"] == [] and outside_view["actors"] == [], outside_view
    assert outsider.lines == [], outsider.report()


def test_an_identity_of_the_client_side_cannot_publish_reports(material, operations):
    receiver = peer("client", material / "display.toml", modules=("M_Mount",))
    genuine = peer("service-write-only", material / "mount-service.toml", marker="genuine", modules=("M_Mount",))
    try:
        assert receiver.wait_for("ready") and genuine.wait_for("ready"), receiver.report() + genuine.report()
        # The control: the service identity's reports arrive.
        reports = {op for op, e in operations.items() if e["interface"] == "IClient" and op.startswith("M_Mount.")}
        send_until(genuine, receiver, reports)
        # The client identity as a sender of reports: the access control refuses its first report writer, so
        # the service facade cannot even be made and the program ends without taking part.
        impostor = peer("service-write-only", material / "display.toml", marker="impostor", modules=("M_Mount",))
        impostor.command("send")
        impostor_code = impostor.finish(30)
        time.sleep(3)  # what a writer that slipped through would have delivered arrives by now
    finally:
        codes = [p.finish() for p in (receiver, genuine)]
    assert impostor_code != 0 and impostor.lines == [], impostor.report()
    assert "dds_create_writer(M_Mount_IClient_" in "\n".join(impostor.errors), impostor.report()
    assert "Not Allowed By Security" in "\n".join(impostor.errors), impostor.report()
    assert [line for line in receiver.lines if "impostor" in line] == [], receiver.report()
    assert codes == [0, 0]


def test_a_secured_recording_replays_into_the_secured_domain(material, tmp_path):
    recording = tmp_path / "alerts.mcap"
    service = peer("service", material / "mount-service.toml", marker="recorded", modules=("M_Alert",))
    recorder = Process([TOOL, "record", "--domain", DOMAIN, "-o", recording, "--duration", "30", "M_Alert.IClient.*"],
                       config=material / "display.toml", stdin=False)
    try:
        assert service.wait_for("ready"), service.report()
        assert wait_until(lambda: any(line.startswith("recording ") for line in recorder.errors), 20), recorder.report()
        service.command("send")  # each report's first write waits for the recorder's reader
        assert service.wait_for("sent-all"), service.report()
    finally:
        assert recorder.finish(interrupt=True) == 0, recorder.report()
        service.finish()
    info = json.loads(tool("info", "--json", recording).stdout)
    assert info["messages"] > 0, info

    client = peer("client", material / "display.toml", modules=("M_Alert",))
    try:
        assert client.wait_for("ready"), client.report()
        replay = tool("replay", "--domain", DOMAIN, "--wait-match", "10", recording, config=material / "bridge.toml")
        assert replay.returncode == 0, replay.stdout + replay.stderr
        assert wait_until(lambda: any("recorded" in line for line in client.starting("received ")), 20), client.report()
    finally:
        assert client.finish() == 0, client.report()
