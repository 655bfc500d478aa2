#!/usr/bin/env node
// Reads a recording with the format's reference reader for JavaScript, through the summary and the chunk
// indexes, and decodes every message from its channel's schema alone (OMG IDL, CDR), printing one JSON
// line per message in log-time order:
//   {"topic": ..., "logTime": "<ns>", "publishTime": "<ns>", "value": <decoded message>}
// 64-bit integers print as strings, typed arrays as arrays. Exit code 0 when everything decoded, 1 with
// a message naming what failed otherwise.
//
//   node check.mjs FILE
import { open } from "node:fs/promises";

import { McapIndexedReader } from "@mcap/core";
import { parseIDL } from "@foxglove/omgidl-parser";
import { MessageReader } from "@foxglove/omgidl-serialization";
import lz4 from "@foxglove/wasm-lz4";
import zstd from "@foxglove/wasm-zstd";

class CheckError extends Error {}

function readable(handle, size) {
  return {
    size: async () => size,
    read: async (offset, length) => {
      const buffer = new Uint8Array(Number(length));
      // A bigint position is taken as "the current position" by some Node versions: pass a number.
      const { bytesRead } = await handle.read(buffer, 0, buffer.length, Number(offset));
      if (bytesRead !== buffer.length) {
        throw new CheckError(`short read: ${bytesRead} of ${length} bytes at offset ${offset}`);
      }
      return buffer;
    },
  };
}

// One decoder per channel, built from the channel's schema the first time a message needs it.
function decoderFor(reader, channel, decoders) {
  let decoder = decoders.get(channel.id);
  if (decoder) return decoder;
  const where = `channel ${channel.id} (${channel.topic})`;
  if (channel.messageEncoding !== "cdr") {
    throw new CheckError(`${where}: message encoding "${channel.messageEncoding}", not "cdr"`);
  }
  const schema = reader.schemasById.get(channel.schemaId);
  if (!schema) throw new CheckError(`${where}: schema ${channel.schemaId} is not in the summary`);
  if (schema.encoding !== "omgidl") {
    throw new CheckError(`${where}: schema encoding "${schema.encoding}", not "omgidl"`);
  }
  let definitions;
  try {
    definitions = parseIDL(new TextDecoder().decode(schema.data));
  } catch (e) {
    throw new CheckError(`${where}: the IDL parser rejects schema ${schema.name}: ${e.message}`);
  }
  try {
    decoder = new MessageReader(schema.name, definitions);
  } catch (e) {
    throw new CheckError(`${where}: no decoder for schema ${schema.name}: ${e.message}`);
  }
  decoders.set(channel.id, decoder);
  return decoder;
}

function json(value) {
  return JSON.stringify(value, (_key, v) => {
    if (typeof v === "bigint") return v.toString();
    if (ArrayBuffer.isView(v)) return Array.from(v);
    return v;
  });
}

async function check(file) {
  const handle = await open(file, "r").catch((e) => {
    throw new CheckError(`cannot open: ${e.message}`);
  });
  try {
    const { size } = await handle.stat({ bigint: true });
    await zstd.isLoaded;
    await lz4.isLoaded;
    const reader = await McapIndexedReader.Initialize({
      readable: readable(handle, size),
      decompressHandlers: {
        zstd: (buffer, decompressedSize) => zstd.decompress(buffer, Number(decompressedSize)),
        lz4: (buffer, decompressedSize) => lz4(buffer, Number(decompressedSize)),
      },
    });
    const decoders = new Map();
    let count = 0n;
    const out = [];
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
      out.push(
        json({ topic: channel.topic, logTime: message.logTime, publishTime: message.publishTime, value }),
      );
      if (out.length >= 1000) process.stdout.write(out.splice(0).join("\n") + "\n");
      count += 1n;
    }
    if (out.length > 0) process.stdout.write(out.join("\n") + "\n");
    if (reader.statistics && reader.statistics.messageCount !== count) {
      throw new CheckError(`read ${count} messages, the statistics state ${reader.statistics.messageCount}`);
    }
  } finally {
    await handle.close();
  }
}

const file = process.argv[2];
if (!file || process.argv.length > 3) {
  process.stderr.write("usage: node check.mjs FILE\n");
  process.exit(1);
}
try {
  await check(file);
} catch (e) {
  process.stderr.write(`check.mjs: ${file}: ${e instanceof CheckError ? e.message : e.stack ?? e}\n`);
  process.exitCode = 1;
}
