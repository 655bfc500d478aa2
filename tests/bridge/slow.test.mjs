// A client that stops reading does not slow a writer: the writer's whole count goes out, the stuck client's
// oldest messages are dropped and the drops reported to it, and every message is either delivered or
// counted as dropped, for the stuck client as for one that keeps reading.
import assert from "node:assert/strict";
import { after, test } from "node:test";

import WebSocket from "ws";

import { DOMAIN, alertService, connect, startBridge, tool, waitFor } from "./fixtures.mjs";

const running = [];
after(async () => { for (const p of running.reverse()) await p.stop(); });

const COUNT = 2500;
const DESCRIPTION = "x".repeat(16 * 1024);

// A raw protocol client whose socket can be paused: it then stops reading, as a stuck viewer does.
async function stuckClient(port, topicEnd) {
  const ws = new WebSocket(`ws://127.0.0.1:${port}`, ["foxglove.websocket.v1"]);
  const state = { messages: 0, dropped: 0, channel: null };
  ws.on("message", (data, isBinary) => {
    if (isBinary) { state.messages++; return; }
    const m = JSON.parse(data.toString());
    if (m.op === "advertise") state.channel ??= m.channels.filter((c) => c.topic.endsWith(topicEnd)).sort((a, b) => a.id - b.id)[0];
    const dropped = m.op === "status" && /^dropped (\d+) messages/.exec(m.message);
    if (dropped) state.dropped += Number(dropped[1]);
  });
  await waitFor("the stuck client's advertisement", () => state.channel);
  ws.send(JSON.stringify({ op: "subscribe", subscriptions: [{ id: 1, channelId: state.channel.id }] }));
  return { ws, state };
}

test("a client that stops reading does not hold up the writer, and its drops are reported", async () => {
  running.push(alertService());  // its report writer advertises the topic before the stream starts
  const bridge = await startBridge("--queue", "32", "M_Alert");
  running.push(bridge);
  const stuck = await stuckClient(bridge.port, "ReportAlarmLog");
  const reader = await connect(bridge.port);
  const logs = await waitFor("ReportAlarmLog advertised", () => reader.channelOf("ReportAlarmLog"));
  reader.subscribeTo(logs);
  let readerDropped = 0;
  reader.on("status", (s) => { const d = /^dropped (\d+) messages/.exec(s.message); if (d) readerDropped += Number(d[1]); });
  await waitFor("both subscriptions", async () =>
    (await (await fetch(bridge.url + "api/topics")).json()).bridge.subscriptions === 2);
  stuck.ws._socket.pause();

  const writer = tool("call", "-d", DOMAIN, "M_Alert.IClient.ReportAlarmLog",
    JSON.stringify({ KeyAlarmId: "stream", Alarm: { Condition: { AlarmDescription: DESCRIPTION } } }),
    "--count", String(COUNT), "--quiet", "--name", "stream-writer");
  running.push(writer);
  assert.equal((await writer.waitExit(120000)).code, 0, writer.lines.join("\n"));
  await waitFor("the stuck client's drops", async () =>
    (await (await fetch(bridge.url + "api/topics")).json()).bridge.dropped > 0);

  stuck.ws._socket.resume();
  await waitFor("the drops reported to the stuck client", () => stuck.state.dropped > 0);
  // Every message the bridge read is delivered or counted, to each client alike.
  const total = () => reader.messages.length + readerDropped;
  await waitFor("each client's messages and drops to add up alike",
    () => total() > 0 && stuck.state.messages + stuck.state.dropped === total(), 60000);
  assert.ok(stuck.state.dropped > 0 && stuck.state.messages < total());
  assert.ok(reader.messages.length > 0, "the reading client was served");
  stuck.ws.close();
  reader.close();
});
