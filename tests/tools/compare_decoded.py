"""Compares the values an independent decoder printed for a recording (one JSON line per message, from
mcap-check/check.mjs) with the values that were recorded (the same form, from vantrel-mcap-samples).

    python3 compare_decoded.py EXPECTED.jsonl DECODED.jsonl

Member names compare without the leading underscore of an escaped IDL identifier (_BitMask), which the
decoder keeps. Prints every difference (the first few per message) and exits 1 when there is any."""

import json
import sys


def unescaped(value):
    if isinstance(value, dict):
        return {(k[1:] if k.startswith("_") else k): unescaped(v) for k, v in value.items()}
    if isinstance(value, list):
        return [unescaped(v) for v in value]
    return value


def same_kind(a, b):
    """JSON has one number type: 3 and 3.0 are alike, true and 1 are not."""
    if isinstance(a, bool) or isinstance(b, bool):
        return type(a) is type(b)
    if isinstance(a, (int, float)) and isinstance(b, (int, float)):
        return True
    return type(a) is type(b)


def differences(expected, got, path):
    if not same_kind(expected, got):
        return [f"{path}: {expected!r} != {got!r}"]
    if isinstance(expected, dict):
        out = []
        for key in sorted(set(expected) | set(got)):
            if key not in got:
                out.append(f"{path}.{key}: missing")
            elif key not in expected:
                out.append(f"{path}.{key}: unexpected")
            else:
                out += differences(expected[key], got[key], f"{path}.{key}")
        return out
    if isinstance(expected, list):
        if len(expected) != len(got):
            return [f"{path}: {len(expected)} elements != {len(got)}"]
        out = []
        for i, (e, g) in enumerate(zip(expected, got)):
            out += differences(e, g, f"{path}[{i}]")
        return out
    return [] if expected == got else [f"{path}: {expected!r} != {got!r}"]


def main(expected_path, decoded_path):
    with open(expected_path, encoding="utf-8") as f:
        expected = [json.loads(line) for line in f if line.strip()]
    with open(decoded_path, encoding="utf-8") as f:
        decoded = [unescaped(json.loads(line)) for line in f if line.strip()]
    failures = 0
    if len(expected) != len(decoded):
        print(f"{len(expected)} messages recorded, {len(decoded)} decoded")
        failures += 1
    for e, d in zip(expected, decoded):
        diff = differences(e, d, e.get("topic", "?"))
        if diff:
            failures += 1
            print(f"{e.get('topic')} at {e.get('logTime')}:")
            for line in diff[:5]:
                print(f"  {line}")
    print(f"{len(expected) - failures} passed, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2]))
