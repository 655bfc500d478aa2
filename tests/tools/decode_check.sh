#!/usr/bin/env bash
# Records three messages of every operation built in (serialized by Cyclone DDS), reads the recording
# with the independent reader in mcap-check/ (decoding every message from its channel's schema alone)
# and compares the decoded values with the recorded ones.
#
#   decode_check.sh SAMPLES_EXE PYTHON WORK_DIR zstd|lz4|none
set -euo pipefail
samples=$1 python=$2 work=$3 compression=$4
here=$(cd "$(dirname "$0")" && pwd)
if [ ! -f "$here/mcap-check/node_modules/@mcap/core/package.json" ]; then
    echo "the node packages of mcap-check are not installed: npm ci --prefix tests/tools/mcap-check" >&2
    exit 1
fi
rm -rf "$work"
mkdir -p "$work"
"$samples" "$work/samples.mcap" "$work/expected.jsonl" --compression "$compression"
node "$here/mcap-check/check.mjs" "$work/samples.mcap" > "$work/decoded.jsonl"
"$python" "$here/compare_decoded.py" "$work/expected.jsonl" "$work/decoded.jsonl"
