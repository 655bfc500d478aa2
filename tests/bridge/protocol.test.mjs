// The viewers' protocol end to end: an independent protocol client sees serverInfo and the advertisements
// of a running alert service and client, subscribes, and decodes every message from the advertised schemas
// to the values the demo sent; topics are read only while subscribed, and unadvertised when their last
// writer goes.
import assert from "node:assert/strict";
import { after, test } from "node:test";

import { Process, ALERT_DEMO, DOMAIN, alertService, connect, decode, startBridge, waitFor } from "./fixtures.mjs";

const running = [];
after(async () => { for (const p of running.reverse()) await p.stop(); });

async function bridgeState(bridge) {
  return (await (await fetch(bridge.url + "api/topics")).json()).bridge;
}

test("a protocol client decodes the alert demo's traffic to the values sent", async () => {
  const service = alertService();
  running.push(service);
  const bridge = await startBridge("M_Alert");
  running.push(bridge);
  const client = await connect(bridge.port);

  assert.ok(client.serverInfo.capabilities.includes("clientPublish"));
  assert.deepEqual(client.serverInfo.supportedEncodings, ["json"]);
  const logs = await waitFor("ReportAlarmLog advertised", () => client.channelOf("ReportAlarmLog"));
  const status = await waitFor("ReportAlertStatus advertised", () => client.channelOf("ReportAlertStatus"));
  const disposals = client.channelOf("ReportAlarmLog", true);
  assert.equal(logs.encoding, "cdr");
  assert.equal(logs.schemaEncoding, "omgidl");
  assert.match(logs.schemaName, /M_Alert::IClient::ReportAlarmLog$/);
  assert.ok(disposals && disposals.schema.length < logs.schema.length, "the disposals' schema has the keys only");
  assert.equal(client.channelOf("CmdRaiseAlarm"), undefined, "no command is advertised without a writer");
  for (const c of [logs, status, disposals]) client.subscribeTo(c);
  await waitFor("the bridge to read the two topics", async () => (await bridgeState(bridge)).read_topics === 2);

  // The demo client raises two alarms, acknowledges and clears them.
  const demo = new Process(ALERT_DEMO, ["client", DOMAIN]);
  running.push(demo);
  assert.equal((await demo.waitExit()).code, 0, demo.lines.join("\n"));
  await waitFor("the cleared status", () =>
    client.messages.some((m) => m.channel === status.id && decode(status, m.data).Status.NumberOfActiveWarningAlarms === 0
      && client.messages.filter((x) => x.channel === disposals.id).length >= 2));

  const byChannel = (c) => client.messages.filter((m) => m.channel === c.id).map((m) => decode(c, m.data));
  const received = byChannel(logs);
  const raised = new Map(received.map((m) => [m.KeyAlarmId, m.Alarm.Condition.AlarmDescription]));
  assert.deepEqual([...raised.values()].sort(), ["battery voltage low", "fan 2 stalled"]);
  assert.ok(received.some((m) => m.Alarm.IsAcknowledged), "the acknowledged logs arrive");
  assert.ok(received.every((m) => m.Alarm.Category === 1 /* Warning */ && m.kelva_sending_actor.length > 0));
  assert.deepEqual(byChannel(disposals).map((m) => m.KeyAlarmId).sort(), [...raised.keys()].sort());
  const counts = byChannel(status).map((m) => m.Status.NumberOfActiveWarningAlarms);
  assert.ok(counts.includes(2) && counts.at(-1) === 0, `status counts ${counts}`);
  for (const m of client.messages) assert.ok(m.timestamp > 1_600_000_000n * 1_000_000_000n, "log time from the sample");

  // The demo client's command writers are gone: their channels too, had they been advertised.
  await waitFor("commands unadvertised", () => !client.channelOf("CmdRaiseAlarm"));
  client.close();
  await waitFor("the bridge to stop reading", async () => (await bridgeState(bridge)).read_topics === 0);
});
