#!/usr/bin/env python3
"""Runs two programs of one exchange side by side on one DDS domain (KELVA_TEST_DOMAIN, from the
environment), each either a Linux program or a Windows program started through scripts/wine-run, and checks
that both end well.

  exchange.py demo --service PROG --client PROG
      the alert demo: the service first, then the client, which must see its alarms raised, acknowledged
      and cleared.
  exchange.py roundtrip --sender PROG --receiver PROG
      the generated round-trip tests split over two processes (VANTREL_EXCHANGE_ROLE): every operation of
      every module sent by one and checked by the other, values and disposals; prints the figures.

PROG is a path; one ending in .exe runs under Wine."""

import argparse
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
WINE_RUN = ROOT / "scripts" / "wine-run"
# Generous: a bound for a hang, never an expected duration (Wine starts slowly on a loaded machine).
DEMO_BOUND_S = 180
CASE_BOUND_S = 300


def command(program: str, *args: str) -> list[str]:
    cmd = [program, *args]
    return ["bash", str(WINE_RUN), *cmd] if program.endswith(".exe") else cmd


def environment(workdir: Path, **extra: str) -> dict[str, str]:
    env = dict(os.environ)
    if "KELVA_TEST_DOMAIN" not in env:
        sys.exit("exchange.py: KELVA_TEST_DOMAIN is not set (run it through vantrel-with-domain)")
    # The first send of each operation waits for the other process's reader: under Wine discovery can take
    # longer than the default bound.
    config = workdir / "kelva.toml"
    config.write_text("[session]\nfirst_write_timeout_ms = 30000\n")
    env["KELVA_CONFIG"] = str(config)
    env.update(extra)
    return env


def finish(name: str, process: subprocess.Popen, bound: float) -> tuple[int, str]:
    try:
        out, _ = process.communicate(timeout=bound)
    except subprocess.TimeoutExpired:
        process.kill()
        out, _ = process.communicate()
        print(f"--- {name}: still running after {bound} s, killed")
        return -1, out
    return process.returncode, out


def demo(args, workdir: Path) -> int:
    domain = os.environ.get("KELVA_TEST_DOMAIN", "")
    env = environment(workdir)
    service = subprocess.Popen(command(args.service, "service", domain, "120"), env=env, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    # The client starts once the service says it runs: its commands then meet the service's readers.
    first = service.stdout.readline()
    print(f"service: {first.strip()}")
    client = subprocess.Popen(command(args.client, "client", domain), env=env, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    client_rc, client_out = finish("client", client, DEMO_BOUND_S)
    service.terminate()
    service_rc, service_out = finish("service", service, 30)
    print(f"--- client ({args.client}), exit {client_rc}\n{client_out}")
    print(f"--- service ({args.service})\n{first}{service_out}")
    ok = client_rc == 0 and "client: all alarms cleared" in client_out and "service: clear" in service_out
    print("demo exchange:", "passed" if ok else "FAILED")
    return 0 if ok else 1


def roundtrip(args, workdir: Path) -> int:
    """The receiver runs every case in its own order (static registration order differs between platforms);
    for each case it starts, the sender runs that one case."""
    marks = workdir / "marks"
    marks.mkdir()
    extra = ["--gtest_filter=" + args.filter] if args.filter else []
    receiver = subprocess.Popen(command(args.receiver, *extra),
                                env=environment(workdir, VANTREL_EXCHANGE_ROLE="receive",
                                                VANTREL_EXCHANGE_DIR=str(marks)),
                                text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    send_env = environment(workdir, VANTREL_EXCHANGE_ROLE="send", VANTREL_EXCHANGE_DIR=str(marks))
    receiver_out, senders_failed = [], []
    for line in receiver.stdout:
        receiver_out.append(line)
        started = re.match(r"\[ RUN      \] (\S+)", line)
        if not started:
            continue
        case = started.group(1)
        try:
            sender = subprocess.run(command(args.sender, "--gtest_filter=" + case), env=send_env, text=True,
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=CASE_BOUND_S)
            if sender.returncode != 0:
                senders_failed.append(f"--- sender of {case}, exit {sender.returncode}\n{sender.stdout}")
        except subprocess.TimeoutExpired as e:
            senders_failed.append(f"--- sender of {case}: still running after {CASE_BOUND_S} s\n{e.stdout}")
    receiver_rc = receiver.wait()
    receiver_text = "".join(receiver_out)
    reports = re.findall(r"\[ exchange \] (\S+): (\d+) operations, (\d+) equal, (\d+) disposals", receiver_text)
    tests = len(reports)
    operations = sum(int(r[1]) for r in reports)
    equal = sum(int(r[2]) for r in reports)
    disposals = sum(int(r[3]) for r in reports)
    if receiver_rc != 0 or senders_failed:
        print(f"--- receiver ({args.receiver}), exit {receiver_rc}\n{receiver_text}")
        print("\n".join(senders_failed))
    print(f"exchange: {tests} cases, {operations} operations sent, {equal} received equal, "
          f"{disposals} disposals received ({args.sender} -> {args.receiver})")
    ok = receiver_rc == 0 and not senders_failed and tests > 0 and equal == operations
    print("round-trip exchange:", "passed" if ok else "FAILED")
    return 0 if ok else 1


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = parser.add_subparsers(dest="mode", required=True)
    d = sub.add_parser("demo")
    d.add_argument("--service", required=True)
    d.add_argument("--client", required=True)
    r = sub.add_parser("roundtrip")
    r.add_argument("--sender", required=True)
    r.add_argument("--receiver", required=True)
    r.add_argument("--filter", default="")
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="vantrel-exchange-") as workdir:
        return demo(args, Path(workdir)) if args.mode == "demo" else roundtrip(args, Path(workdir))


if __name__ == "__main__":
    sys.exit(main())
