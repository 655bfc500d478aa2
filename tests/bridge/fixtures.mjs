// What the bridge's tests share: processes with their output lines, the bridge on a free port of
// 127.0.0.1, protocol clients (@foxglove/ws-protocol over ws) and decoders of the advertised schemas.
import { spawn } from "node:child_process";
import { setTimeout as sleep } from "node:timers/promises";

import wsProtocol from "@foxglove/ws-protocol";
import { parseIDL } from "@foxglove/omgidl-parser";
import { MessageReader } from "@foxglove/omgidl-serialization";
import WebSocket from "ws";

const { FoxgloveClient } = wsProtocol;

export const TOOL = process.env.VANTREL_TOOL;
export const ALERT_DEMO = process.env.VANTREL_ALERT_DEMO;
export const DOMAIN = process.env.KELVA_TEST_DOMAIN;
export const ARTEFACTS = process.env.VANTREL_BRIDGE_ARTEFACTS;
// Bounds for a lost process or message, never expected times.
export const BOUND_MS = 30000;

// Polls `done` until it returns a truthy value; throws `what` after `ms`.
export async function waitFor(what, done, ms = BOUND_MS) {
  const end = Date.now() + ms;
  for (;;) {
    const value = await done();
    if (value) return value;
    if (Date.now() > end) throw new Error(`timed out waiting for ${what}`);
    await sleep(50);
  }
}

export class Process {
  constructor(command, args) {
    this.lines = [];  // stdout and stderr
    this.stdout = [];
    this.exited = null;
    this.child = spawn(command, args, { stdio: ["ignore", "pipe", "pipe"] });
    for (const stream of [this.child.stdout, this.child.stderr]) {
      let rest = "";
      stream.on("data", (chunk) => {
        const parts = (rest + chunk.toString()).split("\n");
        rest = parts.pop();
        this.lines.push(...parts);
        if (stream === this.child.stdout) this.stdout.push(...parts);
      });
    }
    this.child.on("exit", (code, signal) => { this.exited = { code, signal }; });
  }
  line(pattern) { return this.lines.find((l) => pattern.test(l)); }
  count(pattern) { return this.lines.filter((l) => pattern.test(l)).length; }
  waitLine(pattern, ms) { return waitFor(`${pattern} from ${this.child.spawnargs.join(" ")}`, () => this.line(pattern), ms); }
  waitExit(ms) { return waitFor(`${this.child.spawnargs[0]} to end`, () => this.exited, ms); }
  async stop() {
    if (this.exited) return this.exited;
    this.child.kill("SIGTERM");
    return this.waitExit();
  }
}

export function tool(...args) {
  return new Process(TOOL, args);
}

export async function startBridge(...args) {
  const bridge = tool("bridge", "-d", DOMAIN, "--port", "0", ...args);
  const line = await bridge.waitLine(/ws:\/\/127\.0\.0\.1:\d+/);
  bridge.port = Number(/ws:\/\/127\.0\.0\.1:(\d+)/.exec(line)[1]);
  bridge.url = `http://127.0.0.1:${bridge.port}/`;
  return bridge;
}

// A protocol client that keeps what it receives.
export async function connect(port) {
  const ws = new WebSocket(`ws://127.0.0.1:${port}`, [FoxgloveClient.SUPPORTED_SUBPROTOCOL]);
  const client = new FoxgloveClient({ ws });
  client.ws = ws;  // its socket paused, the client stops reading as a stuck viewer does
  client.channels = new Map();
  client.statuses = [];
  client.dropped = 0;  // as the bridge's statuses report them
  client.messages = [];
  client.subscriptions = new Map();  // subscription id -> channel
  client.on("serverInfo", (info) => { client.serverInfo = info; });
  client.on("advertise", (channels) => { for (const c of channels) client.channels.set(c.id, c); });
  client.on("unadvertise", (ids) => { for (const id of ids) client.channels.delete(id); });
  client.on("status", (s) => {
    client.statuses.push(s);
    const dropped = /^dropped (\d+) messages/.exec(s.message);
    if (dropped) client.dropped += Number(dropped[1]);
  });
  client.on("message", (m) => client.messages.push({
    channel: client.subscriptions.get(m.subscriptionId),
    timestamp: m.timestamp,
    data: new Uint8Array(m.data.buffer, m.data.byteOffset, m.data.byteLength).slice(),
  }));
  await waitFor("serverInfo", () => client.serverInfo);
  // A topic's channels come in id order: its data, then (with a dispose flag) its disposals.
  client.channelOf = (topicEnd, dispose = false) =>
    [...client.channels.values()].filter((c) => c.topic.endsWith(topicEnd)).sort((a, b) => a.id - b.id)[dispose ? 1 : 0];
  client.subscribeTo = (channel) => {
    const id = client.subscribe(channel.id);
    client.subscriptions.set(id, channel.id);
    return id;
  };
  return client;
}

const decoders = new Map();
// The message decoded from the channel's own schema, as an independent reader does.
export function decode(channel, data) {
  let reader = decoders.get(channel.schema);
  if (!reader) {
    reader = new MessageReader(channel.schemaName, parseIDL(channel.schema));
    decoders.set(channel.schema, reader);
  }
  return reader.readMessage(data);
}
