"""Bad key material or policy stops an application before it takes part: expired, not yet valid, tampered
(one byte), mismatched and missing files are refused with an error naming the file, the program never
starts, and `vantrel security check` refuses the same."""

import os
import shutil

import pytest

from conftest import DOMAIN, peer, tool


def flip(path, text):
    """Flips one bit of the first byte of `text` in the file (a letter becomes another letter)."""
    data = bytearray(path.read_bytes())
    at = data.find(text.encode())
    assert at >= 0, f"{text!r} not in {path}"
    data[at] ^= 0x01
    path.write_bytes(bytes(data))


def expired_identity(d):
    done = tool("security", "identity", "display", "--ca", d, "-o", d, "--not-before", "2020-01-01", "--days", "1", "--force")
    assert done.returncode == 0, done.stderr
    return d / "display.pem", "expired"


def expired_permissions(d):
    done = tool("security", "permissions", "display", "--ca", d, "-o", d / "display.permissions.p7s", "--grant",
                "M_Mount=client", "--grant", "M_Alert=client", "--not-before", "2020-01-01", "--days", "1", "--force")
    assert done.returncode == 0, done.stderr
    return d / "display.permissions.p7s", "expired"


def permissions_not_yet_valid(d):
    done = tool("security", "permissions", "display", "--ca", d, "-o", d / "display.permissions.p7s", "--grant",
                "M_Mount=client", "--not-before", "2100-01-01", "--force")
    assert done.returncode == 0, done.stderr
    return d / "display.permissions.p7s", "permissions not valid before 2100-01-01T00:00:00Z"


def permissions_of_another_application(d):
    shutil.copy(d / "mount-service.permissions.p7s", d / "display.permissions.p7s")
    return d / "display.permissions.p7s", "grants 'CN=mount-service', not the identity CN=display"


def tampered_permissions(d):
    flip(d / "display.permissions.p7s", "M_Mount_IService_CmdMode")  # a granted topic renamed
    return d / "display.permissions.p7s", "signature"


def tampered_governance(d):
    flip(d / "governance.p7s", "ENCRYPT</data_protection_kind>")
    return d / "governance.p7s", "signature"


def tampered_certificate(d):
    pem = (d / "display.pem").read_text().splitlines()
    flip(d / "display.pem", pem[len(pem) // 2][10:20])  # inside the signed body
    return d / "display.pem", ""


def foreign_ca(d):
    """A CA of its own: what it signs is not trusted by the domain's CA."""
    done = tool("security", "ca", "-o", d / "foreign")
    assert done.returncode == 0, done.stderr
    return d / "foreign"


def permissions_of_a_foreign_ca(d):
    done = tool("security", "permissions", "display", "--ca", foreign_ca(d), "-o", d / "display.permissions.p7s",
                "--grant", "M_Mount=client", "--force")
    assert done.returncode == 0, done.stderr
    return d / "display.permissions.p7s", "signed by another CA than the permissions CA"


def identity_of_a_foreign_ca(d):
    done = tool("security", "identity", "display", "--ca", foreign_ca(d), "-o", d, "--force")
    assert done.returncode == 0, done.stderr
    return d / "display.pem", "not signed by the identity CA"


def foreign_key(d):
    shutil.copy(d / "mount-service.key", d / "display.key")
    return d / "display.key", "certificate"


def missing(name):
    def remove(d):
        os.remove(d / name)
        return d / name, ""
    remove.__name__ = f"missing_{name}"
    return remove


CASES = [expired_identity, expired_permissions, permissions_not_yet_valid, permissions_of_another_application,
         tampered_permissions, tampered_governance, tampered_certificate,
         permissions_of_a_foreign_ca, identity_of_a_foreign_ca, foreign_key, missing("display.key"), missing("governance.p7s"), missing("display.permissions.p7s"), missing("ca.pem")]


@pytest.mark.parametrize("spoil", CASES, ids=[c.__name__ for c in CASES])
def test_bad_material_is_refused_naming_the_file_and_nothing_starts(material, tmp_path, spoil):
    d = tmp_path / "material"
    shutil.copytree(material, d)
    path, reason = spoil(d)

    app = peer("client", d / "display.toml")
    code = app.finish(30)
    assert code != 0 and app.lines == [], app.report()  # not even "ready": no facade, no session
    error = "\n".join(app.errors)
    assert str(path) in error and reason in error, app.report()

    # The tool refuses the same configuration as bad input, naming the file.
    ps = tool("ps", "--domain", DOMAIN, "--wait", "0", config=d / "display.toml")
    assert ps.returncode == 2 and str(path) in ps.stderr, ps.stdout + ps.stderr
    check = tool("security", "check", d / "display.toml")
    assert check.returncode == 2 and str(path) in check.stdout, check.stdout + check.stderr


def test_permissions_for_another_domain_are_refused(material, tmp_path):
    d = tmp_path / "material"
    shutil.copytree(material, d)
    other = (int(DOMAIN) % 230) + 1
    done = tool("security", "permissions", "display", "--ca", d, "-o", d / "display.permissions.p7s", "--grant",
                "M_Mount=client", "--domain", other, "--force")
    assert done.returncode == 0, done.stderr
    app = peer("client", d / "display.toml")
    assert app.finish(30) != 0 and app.lines == [], app.report()
