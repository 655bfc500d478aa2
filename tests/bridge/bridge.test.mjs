// vantrel bridge end to end, one bridge over a running alert service: independent protocol clients decode
// the demo's traffic from the advertised schemas, publish commands (bad input refused to that client only),
// a stuck client does not hold up a writer, and the web monitor shows the live bus in a real browser (Debian's
// chromium driven by puppeteer-core; the screenshot stays in the build tree).
import assert from "node:assert/strict";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, before, test } from "node:test";

import puppeteer from "puppeteer-core";

import { ALERT_DEMO, ARTEFACTS, BOUND_MS, DOMAIN, Process, connect, decode, startBridge, tool, waitFor } from "./fixtures.mjs";

const running = [];
const profile = mkdtempSync(join(tmpdir(), "vantrel-monitor-"));
let browser, service, bridge;
before(async () => {
  // The service's report writers advertise their topics before any test starts.
  service = new Process(ALERT_DEMO, ["service", DOMAIN, "300"]);
  bridge = await startBridge("--queue", "32", "M_Alert");
  running.push(service, bridge);
});
after(async () => {
  if (browser) await browser.close();
  for (const p of running.reverse()) await p.stop();
  rmSync(profile, { recursive: true, force: true });
});

const bridgeState = async () => (await (await fetch(bridge.url + "api/topics")).json()).bridge;
const POWER = { SubsystemName: "Power", ComponentName: "Battery", Measure: "Voltage", Nature: "Low", AlarmDescription: "below 22 V" };
const bytes = (text) => new TextEncoder().encode(text);

test("a protocol client decodes the alert demo's traffic to the values sent", async () => {
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
  await waitFor("the bridge to read the two topics", async () => (await bridgeState()).read_topics === 2);

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
  await waitFor("the bridge to stop reading", async () => (await bridgeState()).read_topics === 0);
});

// The JSON's members and types are checked as `vantrel call` checks them (tests/cli: its refusals); here: the
// bridge's own refusals, and that they go to the client that erred.
test("a published JSON command reaches the service; bad input is refused with an error status", async () => {
  const publisher = await connect(bridge.port);
  const watcher = await connect(bridge.port);
  const logs = await waitFor("ReportAlarmLog advertised", () => watcher.channelOf("ReportAlarmLog"));
  watcher.subscribeTo(logs);
  const raisedBefore = service.count(/service: raise/);

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
  assert.equal(watcher.statuses.filter((s) => s.level === 2).length, 0, "the errors go to the client that erred");

  // A good command after the bad ones: it is the second the service sees, so none of the bad ones was sent,
  // and the other client is still served.
  publisher.sendMessage(raise, bytes(JSON.stringify({ Condition: { ...POWER, AlarmDescription: "fan 3 stalled" } })));
  await service.waitLine(/service: raise .*fan 3 stalled/);
  assert.equal(service.count(/service: raise/), raisedBefore + 2);
  await waitFor("the second log", () =>
    watcher.messages.some((m) => m.channel === logs.id && decode(logs, m.data).Alarm.Condition.AlarmDescription === "fan 3 stalled"));

  // The commands were sent by the bridge's own actor, which ps shows.
  const ps = tool("ps", "-d", DOMAIN, "--json", "--wait", "2");
  await ps.waitExit();
  const actors = JSON.parse(ps.stdout.join("\n")).actors;
  assert.ok(actors.some((a) => a.name === "vantrel-bridge" && a.module === "M_Alert" && a.side === "Client"),
    JSON.stringify(actors.map((a) => a.name)));
  publisher.close();
  watcher.close();
});

// A client that stops reading does not slow a writer: the writer's whole count goes out, the stuck client's
// oldest messages are dropped (the bridge's queue holds 32) and the drops reported to it, and every message is
// either delivered or counted as dropped, for the stuck client as for one that keeps reading.
test("a client that stops reading does not hold up the writer, and its drops are reported", async () => {
  const [stuck, reader] = [await connect(bridge.port), await connect(bridge.port)];
  for (const client of [stuck, reader]) {
    client.subscribeTo(await waitFor("ReportAlarmLog advertised", () => client.channelOf("ReportAlarmLog")));
  }
  await waitFor("both subscriptions", async () => (await bridgeState()).subscriptions === 2);
  stuck.ws._socket.pause();

  const writer = tool("call", "-d", DOMAIN, "M_Alert.IClient.ReportAlarmLog",
    JSON.stringify({ KeyAlarmId: "stream", Alarm: { Condition: { AlarmDescription: "x".repeat(16 * 1024) } } }),
    "--count", "2500", "--quiet", "--name", "stream-writer");
  running.push(writer);
  assert.equal((await writer.waitExit(120000)).code, 0, writer.lines.join("\n"));
  await waitFor("the stuck client's drops", async () => (await bridgeState()).dropped > 0);

  stuck.ws._socket.resume();
  await waitFor("the drops reported to the stuck client", () => stuck.dropped > 0);
  // Every message the bridge read is delivered or counted, to each client alike.
  const total = () => reader.messages.length + reader.dropped;
  await waitFor("each client's messages and drops to add up alike",
    () => total() > 0 && stuck.messages.length + stuck.dropped === total(), 60000);
  assert.ok(stuck.dropped > 0 && stuck.messages.length < total());
  assert.ok(reader.messages.length > 0, "the reading client was served");
  stuck.close();
  reader.close();
});

test("the monitor page shows live actors, rates and a sample's text", async () => {
  // A command stream for the rates: raised at 20 Hz, each answered by the service with a log and a status.
  running.push(tool("call", "-d", DOMAIN, "M_Alert.CmdRaiseAlarm", JSON.stringify({ Condition: POWER }),
    "--rate", "20", "--count", "2000", "--quiet", "--name", "alert-console"));
  browser = await puppeteer.launch({
    executablePath: "/usr/bin/chromium",
    headless: true,
    userDataDir: profile,
    args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync"],
  });
  const page = await browser.newPage();
  await page.setViewport({ width: 1600, height: 820 });
  await page.goto(bridge.url);
  const text = (selector) => page.$eval(selector, (e) => e.textContent);

  await page.waitForFunction(() => document.getElementById("processes").textContent.includes("alert-service"), { timeout: BOUND_MS });
  await page.waitForFunction(() => [...document.querySelectorAll("#topics tbody tr")].some(
    (r) => r.dataset.topic.endsWith("CmdRaiseAlarm") && / Hz$/.test(r.querySelector(".rate").textContent)), { timeout: BOUND_MS });
  assert.match(await text("#processes"), /alert-console/);
  assert.match(await text("#processes"), /M_Alert Service/);

  await page.evaluate(() => [...document.querySelectorAll("#topics tbody tr")]
    .find((r) => r.dataset.topic.endsWith("ReportAlarmLog")).click());
  await page.waitForFunction(() => document.getElementById("sample").textContent.includes("below 22 V"), { timeout: BOUND_MS });
  assert.match(await text("#sample"), /AlarmDescription: below 22 V/);
  assert.match(await text("#selected"), /M_Alert\.IClient\.ReportAlarmLog/);
  await page.screenshot({ path: join(ARTEFACTS, "monitor.png") });
});
