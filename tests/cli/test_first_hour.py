"""What a newcomer meets first: the demo script's printed commands, pasted into a clean shell, see the
demo; the domain from VANTREL_DOMAIN; globs in show and list; the nearest names for a name that matches
nothing."""

import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support", "python"))
from vantrel_testing import Process  # noqa: E402

TOOL = os.environ["VANTREL_TOOL"]
DOMAIN = os.environ["KELVA_TEST_DOMAIN"]
SOURCE = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
BUILD = os.environ.get("VANTREL_BUILD_DIR") or os.path.dirname(os.path.dirname(os.path.dirname(TOOL)))
END_OF_COMMANDS = "(end of commands)"


def clean_environment(**extra):
    """A shell as a newcomer opens it: none of the DDS or tool variables the test run has."""
    env = {k: v for k, v in os.environ.items() if k not in ("CYCLONEDDS_URI", "VANTREL_DOMAIN", "KELVA_CONFIG")}
    env.update(extra)
    return env


def run(*args, env=None, timeout=60):
    return subprocess.run([TOOL, *args], capture_output=True, text=True, timeout=timeout,
                          env=env if env is not None else os.environ)


def test_the_commands_the_demo_prints_see_the_demo():
    demo = Process(["bash", os.path.join(SOURCE, "examples", "run-demo.sh"), BUILD], stdin=False,
                   env=dict(os.environ, VANTREL_DOMAIN=DOMAIN, VANTREL_DEMO_SECONDS="90"))
    try:
        assert demo.wait_for(END_OF_COMMANDS, 30), demo.report()
        block = demo.lines[:demo.lines.index(END_OF_COMMANDS)]
        commands = [line.strip() for line in block if line.startswith("    ")]
        assert any(f"VANTREL_DOMAIN={DOMAIN}" in c for c in commands), commands
        assert any("CYCLONEDDS_URI=file://" in c for c in commands), commands
        # Pasted into a shell without the run's environment, one after the other.
        pasted = subprocess.run(["bash", "-e", "-c", "\n".join(commands)], capture_output=True, text=True,
                                timeout=180, env=clean_environment())
        assert pasted.returncode == 0, pasted.stdout + pasted.stderr
        out = pasted.stdout
        assert "alert_demo" in out, out                                   # ps
        logs = [line for line in out.splitlines() if " M_Alert.IClient.ReportAlarmLog from " in line]
        assert any("battery voltage low" in line for line in logs), out  # echo: an alarm raised while it ran
        assert re.search(r"M_Alert_I(Client|Service)_\w+: average rate [0-9.]+ Hz", out), out  # hz
        assert f"waiting for writers on 1 topic of domain {DOMAIN}" in pasted.stderr, pasted.stderr
        assert re.search(rf"waiting for writers on \d+ topics of domain {DOMAIN}", pasted.stderr), pasted.stderr
    finally:
        code = demo.stop()
    assert code == 0 and "demo: stopped" in demo.lines, demo.report()


def test_the_domain_comes_from_the_environment_and_the_option_wins():
    service = Process([os.environ["VANTREL_ALERT_DEMO"], "service", DOMAIN, "120"], stdin=False)
    try:
        seen = run("ps", "--wait", "3", env=dict(os.environ, VANTREL_DOMAIN=DOMAIN))
        assert seen.returncode == 0 and "alert_demo" in seen.stdout, seen.stdout + seen.stderr
        # -d wins over a variable that would not even parse.
        chosen = run("ps", "--wait", "3", "-d", DOMAIN, env=dict(os.environ, VANTREL_DOMAIN="car"))
        assert chosen.returncode == 0 and "alert_demo" in chosen.stdout, chosen.stdout + chosen.stderr
        bad = run("ps", "--wait", "0", env=dict(os.environ, VANTREL_DOMAIN="car"))
        assert bad.returncode == 2 and "VANTREL_DOMAIN" in bad.stderr, bad.stderr
        assert run("list", "M_Alert", env=dict(os.environ, VANTREL_DOMAIN="car")).returncode == 0  # takes no domain
    finally:
        service.stop()


def test_show_and_list_take_globs_and_unknown_names_get_the_nearest():
    modules = run("show", "M_Al*")
    assert modules.returncode == 0 and modules.stdout.startswith("M_Alert (interface "), modules.stderr
    commands = run("show", "M_Alert.Cmd*")
    assert commands.returncode == 0, commands.stderr
    assert "M_Alert.IService.CmdRaiseAlarm\n" in commands.stdout and "Report" not in commands.stdout
    listed = run("list", "M_Alert.Cmd*").stdout
    assert "IService.CmdRaiseAlarm" in listed and "ReportAlarmLog" not in listed

    for args, near in ((["show", "M_Alrt"], "M_Alert"),
                       (["show", "m_alert.cmdraisealarm"], "M_Alert.CmdRaiseAlarm"),
                       (["echo", "-d", DOMAIN, "M_Alert.IClient.ReportAlarmLg"], "M_Alert.IClient.ReportAlarmLog"),
                       (["list", "M_Alrt.*"], "M_Alert.*")):
        done = run(*args)
        assert done.returncode == 2 and f"did you mean {near}" in done.stderr, (args, done.stderr)
    nothing = run("show", "Gearbox")
    assert nothing.returncode == 2 and "did you mean" not in nothing.stderr, nothing.stderr

