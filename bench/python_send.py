"""Send throughput of the Python binding: the small command of the C++ benchmark (M_Alert CmdRaiseAlarm with
the same condition), from a Python client to a Python service in another process that counts what arrives.

    CYCLONEDDS_URI=file://$PWD/config/cyclonedds-loopback.xml PYTHONPATH=build/python \\
        build/tests/support/vantrel-with-domain python3 bench/python_send.py [messages per batch] [batches]
    ... python3 bench/python_send.py --send-path [calls per repetition] [repetitions]

As the throughput measurement of the C++ benchmark: each batch is timed from its first send until the receiving process
reported the batch's last message (a marker carrying the batch number); every message must arrive; one
warm-up batch, then the median and the spread [min..max] over the batches. With --send-path: the cost of
a call with no reader on the domain, as the C++ benchmark's send part. The domain comes from
KELVA_TEST_DOMAIN (vantrel-with-domain), else it is 100; without CYCLONEDDS_URI the repository's loopback
configuration is used.
"""

import os
import statistics
import subprocess
import sys
import threading
import time

# Before the first session: DDS reads its configuration then.
os.environ.setdefault("CYCLONEDDS_URI", "file://" + os.path.join(os.path.dirname(os.path.abspath(__file__)), "..",
                                                                 "config", "cyclonedds-loopback.xml"))

import vantrel  # noqa: E402
from vantrel import M_Alert  # noqa: E402


def small_condition():
    return M_Alert.AlarmConditionInfoType("Power", "Battery", "Voltage", "Low", "battery voltage below limit")


def receive(domain):
    """The service process: counts CmdRaiseAlarm per batch and reports each batch's marker on stdout."""
    lock = threading.Lock()
    count = [0]

    def on_raise(condition):
        with lock:
            if condition.Measure != "end":
                count[0] += 1
                return
            received, count[0] = count[0], 0
        print(condition.Nature, received, flush=True)

    with M_Alert.Service.create(vantrel.Session(domain), "bench-reader", {"CmdRaiseAlarm": on_raise}):
        print("ready", flush=True)
        sys.stdin.read()  # runs until the sender closes its end


def send(domain, messages, batches):
    reader = subprocess.Popen([sys.executable, __file__, "--receive", str(domain)], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, text=True)
    try:
        if reader.stdout.readline().strip() != "ready":
            raise SystemExit("the receiving process did not start")
        with M_Alert.Client.createWriteOnly(vantrel.Session(domain), "bench-writer") as client:
            client.waitUntilConnected()
            value, marker = small_condition(), small_condition()
            marker.Measure = "end"
            rates, send_rates = [], []
            for batch in range(batches + 1):  # batch 0 warms up
                started = time.perf_counter()
                for _ in range(messages):
                    client.CmdRaiseAlarm(value)
                sent = time.perf_counter()
                marker.Nature = str(batch)
                client.CmdRaiseAlarm(marker)
                reply = reader.stdout.readline().split()
                elapsed = time.perf_counter() - started
                if reply != [str(batch), str(messages)]:
                    raise SystemExit(f"batch {batch}: the reader reported {reply}, expected {messages} messages")
                if batch:
                    rates.append(messages / elapsed)
                    send_rates.append(messages / (sent - started))
    finally:
        reader.stdin.close()
        reader.wait(timeout=30)

    def summary(values):
        return f"{statistics.median(values):.0f} [{min(values):.0f}..{max(values):.0f}]"

    print(f"python send CmdRaiseAlarm, {batches} x {messages} messages, Python receiver in another process")
    print(f"  throughput (msg/s, first send to last message received): {summary(rates)}")
    print(f"  send calls (msg/s, the sending loop alone):              {summary(send_rates)}")
    print("batches (msg/s): " + " ".join(f"{r:.0f}" for r in rates), flush=True)


def send_path(domain, messages, repetitions):
    """The send path alone, as the C++ benchmark's send part: a write-only client with no reader on the domain,
    nanoseconds per call over each repetition of `messages` calls, after one warm-up repetition (which also
    takes the first send's bounded wait for a reader)."""
    with M_Alert.Client.createWriteOnly(vantrel.Session(domain), "bench-send") as client:
        value = small_condition()
        costs = []
        for repetition in range(repetitions + 1):
            started = time.perf_counter()
            for _ in range(messages):
                client.CmdRaiseAlarm(value)
            if repetition:
                costs.append((time.perf_counter() - started) * 1e9 / messages)
    print("calls (ns/call): " + " ".join(f"{c:.0f}" for c in costs), flush=True)


def domain_of_run():
    domain = os.environ.get("KELVA_TEST_DOMAIN")
    return int(domain) if domain else 100


if __name__ == "__main__":
    if len(sys.argv) > 2 and sys.argv[1] == "--receive":
        receive(int(sys.argv[2]))
    elif len(sys.argv) > 1 and sys.argv[1] == "--send-path":
        send_path(domain_of_run(), int(sys.argv[2]) if len(sys.argv) > 2 else 20000,
                  int(sys.argv[3]) if len(sys.argv) > 3 else 7)
    else:
        send(domain_of_run(), int(sys.argv[1]) if len(sys.argv) > 1 else 20000,
             int(sys.argv[2]) if len(sys.argv) > 2 else 7)
