#!/usr/bin/env node
// Reads a recording with the format's reference reader for JavaScript, through the summary and the chunk
// indexes, decodes every message from its channel's schema alone (OMG IDL, CDR) and prints one JSON line per
// message in log-time order ({"topic", "logTime", "publishTime", "value"}, 64-bit integers as strings). Given
// EXPECTED (such lines), it compares instead, ignoring the leading underscore of escaped IDL identifiers, and
// prints the first differences. Exit code 1, naming what failed, on any failure or difference.
//   node check.mjs FILE [EXPECTED.jsonl]
import { readFileSync } from "node:fs";
import { isDeepStrictEqual } from "node:util";

import { McapIndexedReader } from "@mcap/core";
import { parseIDL } from "@foxglove/omgidl-parser";
import { MessageReader } from "@foxglove/omgidl-serialization";
import lz4 from "@foxglove/wasm-lz4";
import zstd from "@foxglove/wasm-zstd";

class CheckError extends Error {}

// One decoder per channel, built from the channel's schema the first time a message needs it.
function decoderFor(reader, channel, decoders) {
  let decoder = decoders.get(channel.id);
  if (decoder) return decoder;
  const where = `channel ${channel.id} (${channel.topic})`;
  const schema = reader.schemasById.get(channel.schemaId);
  if (channel.messageEncoding !== "cdr" || schema?.encoding !== "omgidl") {
    throw new CheckError(`${where}: message encoding "${channel.messageEncoding}", schema ${channel.schemaId} ` +
      `${schema ? `encoded "${schema.encoding}"` : "not in the summary"}; expected cdr and omgidl`);
  }
  try {
    decoder = new MessageReader(schema.name, parseIDL(new TextDecoder().decode(schema.data)));
  } catch (e) {
    throw new CheckError(`${where}: no decoder for schema ${schema.name}: ${e.message}`);
  }
  decoders.set(channel.id, decoder);
  return decoder;
}

const text = (value) => JSON.stringify(value, (_key, v) =>
  typeof v === "bigint" ? v.toString() : ArrayBuffer.isView(v) ? Array.from(v) : v);
const normal = (v) => Array.isArray(v) ? v.map(normal)
  : v && typeof v === "object" ? Object.fromEntries(Object.entries(v).map(([k, x]) => [k.replace(/^_/, ""), normal(x)]))
  : v;

async function check(file, expectedFile) {
  const expected = expectedFile &&
    readFileSync(expectedFile, "utf8").split("\n").filter((l) => l.trim()).map((l) => normal(JSON.parse(l)));
  let data;
  try {
    data = readFileSync(file);
  } catch (e) {
    throw new CheckError(`cannot read: ${e.message}`);
  }
  await zstd.isLoaded;
  await lz4.isLoaded;
  const reader = await McapIndexedReader.Initialize({
    readable: {
      size: async () => BigInt(data.length),
      read: async (offset, length) => data.subarray(Number(offset), Number(offset + length)),
    },
    decompressHandlers: {
      zstd: (buffer, decompressedSize) => zstd.decompress(buffer, Number(decompressedSize)),
      lz4: (buffer, decompressedSize) => lz4(buffer, Number(decompressedSize)),
    },
  });
  const decoders = new Map();
  const out = [];
  let differing = 0;
  for await (const message of reader.readMessages({ validateCrcs: true })) {
    const channel = reader.channelsById.get(message.channelId);
    if (!channel) throw new CheckError(`message on channel ${message.channelId}, which the summary lacks`);
    let value;
    try {
      value = decoderFor(reader, channel, decoders).readMessage(message.data);
    } catch (e) {
      if (e instanceof CheckError) throw e;
      throw new CheckError(`${channel.topic}: message at log time ${message.logTime} does not decode: ${e.message}`);
    }
    const line = text({ topic: channel.topic, logTime: message.logTime, publishTime: message.publishTime, value });
    const wanted = expected?.[out.length];
    if (expected && !isDeepStrictEqual(normal(JSON.parse(line)), wanted) && ++differing <= 5) {
      console.log(`${channel.topic} at ${message.logTime}:\n  recorded ${JSON.stringify(wanted)}\n  decoded  ${line}`);
    }
    out.push(expected ? "" : line);
  }
  if (reader.statistics && reader.statistics.messageCount !== BigInt(out.length)) {
    throw new CheckError(`read ${out.length} messages, the statistics state ${reader.statistics.messageCount}`);
  }
  if (!expected) {
    if (out.length > 0) process.stdout.write(out.join("\n") + "\n");
  } else if (differing > 0 || out.length !== expected.length) {
    throw new CheckError(`${expected.length} messages recorded, ${out.length} decoded, ${differing} differ`);
  } else {
    console.log(`${out.length} messages decoded as recorded`);
  }
}

const [file, expectedFile] = process.argv.slice(2);
if (!file || process.argv.length > 4) {
  process.stderr.write("usage: node check.mjs FILE [EXPECTED.jsonl]\n");
  process.exit(1);
}
try {
  await check(file, expectedFile);
} catch (e) {
  process.stderr.write(`check.mjs: ${file}: ${e instanceof CheckError ? e.message : e.stack ?? e}\n`);
  process.exitCode = 1;
}
