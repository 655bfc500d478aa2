// Clients publish through the bridge: a JSON command reaches the service, sent by the bridge's own actor;
// bad input gets an error status to that client, nothing is sent, and the bridge keeps serving others.
import assert from "node:assert/strict";
import { after, test } from "node:test";

import { DOMAIN, alertService, connect, decode, startBridge, tool, waitFor } from "./fixtures.mjs";

const running = [];
after(async () => { for (const p of running.reverse()) await p.stop(); });

const POWER = { SubsystemName: "Power", ComponentName: "Battery", Measure: "Voltage", Nature: "Low", AlarmDescription: "below 22 V" };
const FAN = { ...POWER, SubsystemName: "Cooling", ComponentName: "Fan 2", AlarmDescription: "fan 2 stalled" };
const bytes = (text) => new TextEncoder().encode(text);

test("a published JSON command reaches the service; bad input is refused with an error status", async () => {
  const service = alertService();
  running.push(service);
  const bridge = await startBridge();
  running.push(bridge);
  const publisher = await connect(bridge.port);
  const watcher = await connect(bridge.port);
  const logs = await waitFor("ReportAlarmLog advertised", () => watcher.channelOf("ReportAlarmLog"));
  watcher.subscribeTo(logs);

  // The command's DDS topic name, as the toolkit maps it (the report's, with the command's names).
  const topic = logs.topic.replace("IClient", "IService").replace("ReportAlarmLog", "CmdRaiseAlarm");
  const raise = publisher.advertise({ topic, encoding: "json", schemaName: "M_Alert::IService::CmdRaiseAlarm" });
  publisher.sendMessage(raise, bytes(JSON.stringify({ Condition: POWER })));
  await service.waitLine(/service: raise .*below 22 V/);
  const first = await waitFor("the service's log", () => watcher.messages.find((m) => m.channel === logs.id));
  assert.equal(decode(logs, first.data).Alarm.Condition.AlarmDescription, "below 22 V");

  const errors = () => publisher.statuses.filter((s) => s.level === 2).map((s) => s.message);
  publisher.advertise({ topic: "M_Alert.IService.CmdNoSuchThing", encoding: "json", schemaName: "x" });
  await waitFor("the unknown topic's error", () => errors().some((m) => /unknown topic M_Alert\.IService\.CmdNoSuchThing/.test(m)));
  publisher.sendMessage(raise, bytes("{\"Condition\": "));
  await waitFor("the malformed JSON's error", () =>
    errors().some((m) => m.startsWith("M_Alert.IService.CmdRaiseAlarm: arguments are not valid JSON")));
  publisher.sendMessage(raise, bytes(JSON.stringify({ Condition: { ...POWER, Voltage: 24 } })));
  await waitFor("the wrong member's error", () =>
    errors().some((m) => m.startsWith("M_Alert.IService.CmdRaiseAlarm: Condition.Voltage: no such member")));
  publisher.sendMessage(raise, bytes(JSON.stringify({ Condition: { ...POWER, Nature: 7 } })));
  await waitFor("the wrong type's error", () => errors().some((m) => /Condition\.Nature: expected a string, got 7/.test(m)));
  assert.equal(watcher.statuses.filter((s) => s.level === 2).length, 0, "the errors go to the client that erred");

  // A good command after the bad ones: it is the second the service sees, so none of the bad ones was sent,
  // and the other client is still served.
  publisher.sendMessage(raise, bytes(JSON.stringify({ Condition: FAN })));
  await service.waitLine(/service: raise .*fan 2 stalled/);
  assert.equal(service.count(/service: raise/), 2);
  await waitFor("the second log", () =>
    watcher.messages.some((m) => m.channel === logs.id && decode(logs, m.data).Alarm.Condition.AlarmDescription === "fan 2 stalled"));

  // The commands were sent by the bridge's own actor, which ps shows.
  const ps = tool("ps", "-d", DOMAIN, "--json", "--wait", "2");
  await ps.waitExit();
  const actors = JSON.parse(ps.stdout.join("\n")).actors;
  assert.ok(actors.some((a) => a.name === "vantrel-bridge" && a.module === "M_Alert" && a.side === "Client"),
    JSON.stringify(actors.map((a) => a.name)));
  publisher.close();
  watcher.close();
});
