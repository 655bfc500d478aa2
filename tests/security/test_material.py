"""`vantrel security`: what it writes, read back with the openssl program (an independent reader), and bad
input refused with exit code 2 before anything is written."""

import calendar
import os
import shutil
import stat
import subprocess
import time
import xml.etree.ElementTree as ET

import pytest

from conftest import tool, tool_ok


def openssl(*args):
    done = subprocess.run(["openssl", *map(str, args)], capture_output=True, text=True, timeout=30)
    assert done.returncode == 0, done.stderr
    return done.stdout


def signed_content(path, ca):
    """The document inside an S/MIME file, verified against the CA by openssl."""
    return ET.fromstring(openssl("smime", "-verify", "-in", path, "-CAfile", ca, "-text"))


def utc(text):
    return calendar.timegm(time.strptime(text, "%Y-%m-%dT%H:%M:%S"))


@pytest.fixture(scope="module")
def ca(tmp_path_factory):
    d = tmp_path_factory.mktemp("ca")
    tool_ok("security", "ca", "-o", d, "--name", "Test Fleet CA", "--days", "30")
    return d


def test_ca_and_identity_are_a_valid_chain_of_ec_keys(ca, tmp_path):
    cert = openssl("x509", "-in", ca / "ca.pem", "-noout", "-subject", "-issuer", "-ext", "basicConstraints", "-enddate")
    assert "subject=CN = Test Fleet CA" in cert and "issuer=CN = Test Fleet CA" in cert and "CA:TRUE" in cert
    assert "ASN1 OID: prime256v1" in openssl("pkey", "-in", ca / "ca.key", "-noout", "-text")
    assert stat.S_IMODE(os.stat(ca / "ca.key").st_mode) == 0o600

    tool_ok("security", "identity", "gimbal-7", "--ca", ca, "-o", tmp_path, "--days", "10")
    assert openssl("verify", "-CAfile", ca / "ca.pem", tmp_path / "gimbal-7.pem").strip().endswith("OK")
    assert openssl("x509", "-in", tmp_path / "gimbal-7.pem", "-noout", "-subject", "-nameopt", "RFC2253").strip() \
        == "subject=CN=gimbal-7"
    assert openssl("x509", "-in", tmp_path / "gimbal-7.pem", "-noout", "-pubkey") == \
        openssl("pkey", "-in", tmp_path / "gimbal-7.key", "-pubout")
    end = openssl("x509", "-in", tmp_path / "gimbal-7.pem", "-noout", "-enddate").strip().split("=", 1)[1]
    days = (calendar.timegm(time.strptime(end, "%b %d %H:%M:%S %Y GMT")) - time.time()) / 86400
    assert 9.9 < days <= 10.0


def test_governance_protects_every_topic_and_is_signed_by_the_ca(ca, tmp_path):
    tool_ok("security", "governance", "--ca", ca, "-o", tmp_path / "g.p7s", "--domain", "3", "--domain", "10-20")
    rule = signed_content(tmp_path / "g.p7s", ca / "ca.pem").find("domain_access_rules/domain_rule")
    assert [e.text for e in rule.findall("domains/id")] == ["3"]
    assert [(r.findtext("min"), r.findtext("max")) for r in rule.findall("domains/id_range")] == [("10", "20")]
    settings = {"allow_unauthenticated_participants": "false", "enable_join_access_control": "true",
                "discovery_protection_kind": "ENCRYPT", "liveliness_protection_kind": "ENCRYPT",
                "rtps_protection_kind": "SIGN"}
    assert {name: rule.findtext(name) for name in settings} == settings
    topics = rule.findall("topic_access_rules/topic_rule")
    assert len(topics) == 1
    settings = {"topic_expression": "*", "enable_discovery_protection": "true", "enable_liveliness_protection": "true",
                "enable_read_access_control": "true", "enable_write_access_control": "true",
                "metadata_protection_kind": "ENCRYPT", "data_protection_kind": "ENCRYPT"}
    assert {name: topics[0].findtext(name) for name in settings} == settings


def test_permissions_grant_exactly_the_sides_of_the_catalogue(ca, tmp_path, operations):
    tool_ok("security", "permissions", "display", "--ca", ca, "-o", tmp_path / "p.p7s", "--grant", "M_Mount=service",
            "--grant", "M_Alert=client", "--days", "7", "--not-before", "2031-05-01T09:30:00")
    grant = signed_content(tmp_path / "p.p7s", ca / "ca.pem").find("permissions/grant")
    assert grant.findtext("subject_name") == "CN=display"
    assert grant.findtext("validity/not_before") == "2031-05-01T09:30:00"
    assert utc(grant.findtext("validity/not_after")) - utc("2031-05-01T09:30:00") == 7 * 86400
    assert grant.findtext("default") == "DENY"
    rule = grant.find("allow_rule")
    published = {t.text for t in rule.findall("publish/topics/topic")}
    subscribed = {t.text for t in rule.findall("subscribe/topics/topic")}

    # From the catalogue as `vantrel list` shows it: a service sends the IClient operations and receives the
    # IService ones, a client the reverse; every session also writes and reads the toolkit's own topics.
    def topics(module, interface):
        return {e["topic"] for op, e in operations.items() if op.startswith(module + ".") and e["interface"] == interface}
    own = {"kelva_intern_Process", "kelva_intern_Session", "kelva_intern_ActorInfo"}
    assert published == topics("M_Mount", "IClient") | topics("M_Alert", "IService") | own
    assert subscribed == topics("M_Mount", "IService") | topics("M_Alert", "IClient") | own


def test_setup_writes_one_configuration_per_application_and_keeps_its_ca(material, tmp_path):
    for app in ("mount-service", "display", "bridge"):
        toml = (material / f"{app}.toml").read_text()
        assert f'permissions = "{app}.permissions.p7s"' in toml and 'identity_ca = "ca.pem"' in toml
        assert openssl("verify", "-CAfile", material / "ca.pem", material / f"{app}.pem").strip().endswith("OK")
        check = tool("security", "check", material / f"{app}.toml")
        assert check.returncode == 0 and f"ok (CN={app})" in check.stdout, check.stdout + check.stderr
    assert tool("security", "check", material).returncode == 0
    d = tmp_path / "material"
    shutil.copytree(material, d)
    ca_before = (d / "ca.pem").read_bytes()
    tool_ok("security", "setup", d, "--app", "panel:M_Mount=client")
    assert (d / "ca.pem").read_bytes() == ca_before  # earlier applications stay valid
    clash = tool("security", "setup", d, "--app", "ca:M_Mount=client")
    assert clash.returncode == 2 and "'ca' names the CA's own files" in clash.stderr
    assert (d / "ca.pem").read_bytes() == ca_before


@pytest.mark.parametrize("args, message", [
    (["permissions", "x", "--grant", "M_Nope=service"], "unknown module 'M_Nope'"),
    (["permissions", "x", "--grant", "M_Mount=admin"], "unknown side 'admin'"),
    (["permissions", "x", "--grant", "M_Mount"], "give MODULE=service or MODULE=client"),
    (["permissions", "x", "--grant", "M_Mount=client", "--domain", "231"], "--domain '231'"),
    (["permissions", "x", "--grant", "M_Mount=client", "--days", "0"], "--days 0"),
    (["permissions", "x", "--grant", "M_Mount=client", "--not-before", "2031-02-30"], "not a valid UTC time"),
    (["permissions", "x/y", "--grant", "M_Mount=client"], "identity name 'x/y'"),
    (["identity", "x", "--not-before", "yesterday"], "--not-before 'yesterday'"),
    (["governance", "--rtps-protection", "LOUD"], "--rtps-protection 'LOUD'"),
])
def test_bad_input_exits_2_naming_it_and_writes_nothing(ca, tmp_path, args, message):
    verb, rest = args[0], args[1:]
    out = tmp_path / "out.p7s" if verb in ("permissions", "governance") else tmp_path
    done = tool("security", verb, *rest, "--ca", ca, "-o", out)
    assert done.returncode == 2, done.stdout + done.stderr
    assert message in done.stderr, done.stderr
    assert not (tmp_path / "out.p7s").exists() and not list(tmp_path.glob("x*"))


def test_existing_files_are_kept_unless_forced(ca, tmp_path):
    (tmp_path / "p.p7s").write_text("keep")
    args = ["security", "permissions", "x", "--ca", ca, "-o", tmp_path / "p.p7s", "--grant", "M_Alert=client"]
    refused = tool(*args)
    assert refused.returncode == 2 and f"{tmp_path / 'p.p7s'}: exists (--force replaces it)" in refused.stderr
    assert (tmp_path / "p.p7s").read_text() == "keep"
    assert tool(*args, "--force").returncode == 0 and (tmp_path / "p.p7s").read_text() != "keep"
    no_ca = tool("security", "identity", "x", "--ca", tmp_path, "-o", tmp_path)
    assert no_ca.returncode == 2 and str(tmp_path / "ca.pem") in no_ca.stderr
