#pragma once
// Keys and X.509 certificates of DDS security: read from PEM, checked against each other, and made (a CA
// and the identities it certifies). libcrypto stays behind this interface; its types are only named here.
//
// Bad input (a file that cannot be read, text that is not PEM) throws kelva::config::ConfigError beginning
// with the file's path or the given origin; libcrypto failing on well-formed input throws
// std::runtime_error.
#include <ctime>
#include <memory>
#include <string>

#include "kelva/Export.h"

struct evp_pkey_st;
struct x509_st;

namespace kelva::security {

// A validity period, UTC seconds.
struct Validity {
    std::time_t notBefore = 0;
    std::time_t notAfter = 0;
};

// "2031-05-01T09:30:00" (UTC, the form of the permissions documents).
KELVA_EXPORT std::string isoTime(std::time_t t);

// The whole of a file, for the checks: ConfigError "<path>: cannot be read: <reason>" or "<path>: is empty".
KELVA_EXPORT std::string readFile(const std::string& path);

class KELVA_EXPORT PrivateKey {
public:
    // A new EC key on prime256v1 (the DDS layer's authentication takes that or RSA 2048).
    static PrivateKey generate();
    // A PEM key without a password; `origin` names the text in the error.
    static PrivateKey fromPem(const std::string& pem, const std::string& origin);
    static PrivateKey read(const std::string& path) { return fromPem(readFile(path), path); }

    std::string pem() const;
    evp_pkey_st* native() const { return m_key.get(); }

private:
    explicit PrivateKey(std::shared_ptr<evp_pkey_st> key) : m_key(std::move(key)) {}
    std::shared_ptr<evp_pkey_st> m_key;
};

class KELVA_EXPORT Certificate {
public:
    static Certificate fromPem(const std::string& pem, const std::string& origin);
    static Certificate read(const std::string& path) { return fromPem(readFile(path), path); }
    // Takes ownership of a libcrypto certificate (the module's own makers).
    explicit Certificate(x509_st* owned);

    std::string pem() const;
    // The subject as the access-control documents spell it: RFC 2253 ("CN=display").
    std::string subject() const;
    Validity validity() const;
    // Whether `issuer`'s key made this certificate's signature (so also: no byte of it changed).
    bool signedBy(const Certificate& issuer) const;
    bool belongsTo(const PrivateKey& key) const;
    x509_st* native() const { return m_cert.get(); }

private:
    std::shared_ptr<x509_st> m_cert;
};

// A certificate authority: its certificate and the key it signs with.
struct KELVA_EXPORT Authority {
    Certificate certificate;
    PrivateKey key;

    // A new CA: a key and a self-signed certificate (CN=commonName, CA:TRUE) that may sign certificates and
    // S/MIME documents.
    static Authority make(const std::string& commonName, const Validity& validity);
    // From its files; ConfigError naming the key file when the key is not the certificate's.
    static Authority read(const std::string& certificatePath, const std::string& keyPath);
};

// An identity certificate: subject CN=commonName, CA:FALSE, digitalSignature and keyAgreement, signed by
// the CA.
KELVA_EXPORT Certificate makeIdentityCertificate(const PrivateKey& key, const std::string& commonName, const Authority& ca,
                                    const Validity& validity);

}  // namespace kelva::security
