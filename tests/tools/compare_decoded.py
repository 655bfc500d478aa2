"""Compares the values an independent decoder printed for a recording (one JSON line per message, from
mcap-check/check.mjs) with the values that were recorded (the same form, from vantrel-mcap-samples).

    python3 compare_decoded.py EXPECTED.jsonl DECODED.jsonl

Member names compare without the leading underscore of an escaped IDL identifier (_BitMask), which the
decoder keeps; JSON has one number type (3 and 3.0 are alike), but true and 1 are not. Prints the first
differing messages and exits 1 when there is any difference."""

import json
import sys


def normal(value):
    if isinstance(value, dict):
        return {(k[1:] if k.startswith("_") else k): normal(v) for k, v in value.items()}
    if isinstance(value, list):
        return [normal(v) for v in value]
    return ("boolean", value) if isinstance(value, bool) else value


def read(path):
    with open(path, encoding="utf-8") as f:
        return [normal(json.loads(line)) for line in f if line.strip()]


def main(expected_path, decoded_path):
    expected, decoded = read(expected_path), read(decoded_path)
    failures = [(e, d) for e, d in zip(expected, decoded) if e != d]
    for e, d in failures[:5]:
        print(f"{e.get('topic')} at {e.get('logTime')}:\n  recorded {json.dumps(e)}\n  decoded  {json.dumps(d)}")
    if len(expected) != len(decoded):
        print(f"{len(expected)} messages recorded, {len(decoded)} decoded")
    print(f"{len(expected) - len(failures)} passed, {len(failures)} failed")
    return 1 if failures or len(expected) != len(decoded) else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2]))
