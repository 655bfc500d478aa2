#pragma once
// Security files for the toolkit's tests, made with libcrypto: a CA, identities with chosen validity,
// governance and permissions documents signed as the DDS layer reads them (S/MIME, detached, text).
#include <string>

namespace kelva::test {

struct KeyPair {
    std::string certificate;  // PEM
    std::string privateKey;   // PEM, no password
};

// A self-signed CA valid from an hour ago for `days`.
KeyPair makeCa(const std::string& commonName, int days = 30);
// A certificate for `commonName` signed by `ca`, valid from `fromHours` to `toHours` relative to now.
KeyPair makeIdentity(const std::string& commonName, const KeyPair& ca, long fromHours = -1, long toHours = 24 * 30);
// `text` signed by `ca` in S/MIME form.
std::string signDocument(const std::string& text, const KeyPair& ca);

// A governance document protecting discovery, liveliness and every topic (encrypted), for domains 0..230.
std::string governanceXml();
// Permissions of `subject` (e.g. "CN=app") on every topic of domains 0..230, valid until `notAfter`
// ("2036-01-01T00:00:00").
std::string permissionsXml(const std::string& subject, const std::string& notAfter);

}  // namespace kelva::test
