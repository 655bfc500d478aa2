"""Bad key material or policy stops an application before it takes part, naming the file; `vantrel security
check` refuses the same."""

import shutil

import pytest

from conftest import DOMAIN, peer, tool, tool_ok


def flipped(path, text):
    """`path` with one bit of the first byte of `text` in it flipped (a letter becomes another letter)."""
    data = bytearray(path.read_bytes())
    at = data.find(text.encode())
    assert at >= 0, f"{text!r} not in {path}"
    data[at] ^= 0x01
    path.write_bytes(bytes(data))
    return path


def permissions(d, *grants, ca=None):
    """Display's permissions made anew, signed by `ca` (the domain's by default)."""
    tool_ok("security", "permissions", "display", "--ca", ca or d, "-o", d / "display.permissions.p7s", *grants,
            "--force")
    return d / "display.permissions.p7s"


def identity(d, *args, ca=None):
    tool_ok("security", "identity", "display", "--ca", ca or d, "-o", d, *args, "--force")
    return d / "display.pem"


def foreign_ca(d):
    """A CA of its own: what it signs is not trusted by the domain's CA."""
    tool_ok("security", "ca", "-o", d / "foreign")
    return d / "foreign"


def certificate_body(d):
    pem = (d / "display.pem").read_text().splitlines()
    return pem[len(pem) // 2][10:20]  # inside the signed body


EXPIRED = ("--not-before", "2020-01-01", "--days", "1")
# (name, what spoils the material and returns the file it spoilt, what the error says about it)
CASES = [
    ("expired_identity", lambda d: identity(d, *EXPIRED), "expired"),
    ("expired_permissions", lambda d: permissions(d, "--grant", "M_Mount=client", "--grant", "M_Alert=client",
                                                  *EXPIRED), "expired"),
    ("permissions_not_yet_valid", lambda d: permissions(d, "--grant", "M_Mount=client", "--not-before", "2100-01-01"),
     "permissions not valid before 2100-01-01T00:00:00Z"),
    ("permissions_of_another_application",
     lambda d: shutil.copy(d / "mount-service.permissions.p7s", d / "display.permissions.p7s"),
     "grants 'CN=mount-service', not the identity CN=display"),
    ("tampered_permissions",  # a granted topic renamed
     lambda d: flipped(d / "display.permissions.p7s", "M_Mount_IService_CmdMode"), "signature"),
    ("tampered_governance", lambda d: flipped(d / "governance.p7s", "ENCRYPT</data_protection_kind>"), "signature"),
    ("tampered_certificate", lambda d: flipped(d / "display.pem", certificate_body(d)), ""),
    ("permissions_of_a_foreign_ca", lambda d: permissions(d, "--grant", "M_Mount=client", ca=foreign_ca(d)),
     "signed by another CA than the permissions CA"),
    ("identity_of_a_foreign_ca", lambda d: identity(d, ca=foreign_ca(d)), "not signed by the identity CA"),
    ("foreign_key", lambda d: shutil.copy(d / "mount-service.key", d / "display.key"), "certificate"),
] + [(f"missing_{name}", lambda d, name=name: (d / name).unlink() or d / name, "")
     for name in ("display.key", "governance.p7s", "display.permissions.p7s", "ca.pem")] + [
    # The DDS layer refuses this one when the participant is made, naming no file.
    ("permissions_for_another_domain",
     lambda d: permissions(d, "--grant", "M_Mount=client", "--domain", (int(DOMAIN) % 230) + 1), None)]


@pytest.mark.parametrize("spoil, reason", [c[1:] for c in CASES], ids=[c[0] for c in CASES])
def test_bad_material_is_refused_naming_the_file_and_nothing_starts(material, tmp_path, spoil, reason):
    d = tmp_path / "material"
    shutil.copytree(material, d)
    path = spoil(d)

    app = peer("client", d / "display.toml")
    code = app.finish(30)
    assert code != 0 and app.lines == [], app.report()  # not even "ready": no facade, no session
    if reason is None:
        return
    error = "\n".join(app.errors)
    assert str(path) in error and reason in error, app.report()

    # The tool refuses the same configuration as bad input, naming the file.
    ps = tool("ps", "--domain", DOMAIN, "--wait", "0", config=d / "display.toml")
    assert ps.returncode == 2 and str(path) in ps.stderr, ps.stdout + ps.stderr
    check = tool("security", "check", d / "display.toml")
    assert check.returncode == 2 and str(path) in check.stdout, check.stdout + check.stderr

