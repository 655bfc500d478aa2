#include "kelva/security/KeyMaterial.h"

#include <openssl/bn.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "Libcrypto.h"
#include "kelva/config/Config.h"

namespace kelva::security {

using config::ConfigError;

namespace {

std::time_t timeOf(const ASN1_TIME* t) {
    std::tm tm{};
    crypto::require(ASN1_TIME_to_tm(t, &tm) == 1, "cannot read a certificate's validity");
    return timegm(&tm);
}

void addExtension(X509* cert, X509* issuer, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    crypto::require(extension != nullptr, std::string("cannot make the extension ") + OBJ_nid2sn(nid));
    const int added = X509_add_ext(cert, extension, -1);
    X509_EXTENSION_free(extension);
    crypto::require(added == 1, std::string("cannot add the extension ") + OBJ_nid2sn(nid));
}

// A certificate with everything but the issuer's name, the extensions and the signature.
Certificate startCertificate(const PrivateKey& key, const std::string& commonName, const Validity& validity) {
    crypto::initialise();
    Certificate cert(X509_new());
    X509* x = cert.native();
    crypto::require(x != nullptr, "cannot allocate a certificate");
    crypto::require(X509_set_version(x, X509_VERSION_3) == 1, "cannot set the certificate version");
    // A random 127-bit serial: unique without a serial file next to the CA.
    std::unique_ptr<BIGNUM, crypto::Deleter<BIGNUM, BN_free>> serial(BN_new());
    crypto::require(serial && BN_rand(serial.get(), 127, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
                        BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(x)) != nullptr,
                    "cannot make a serial number");
    crypto::require(ASN1_TIME_set(X509_getm_notBefore(x), validity.notBefore) != nullptr &&
                        ASN1_TIME_set(X509_getm_notAfter(x), validity.notAfter) != nullptr,
                    "cannot set the validity");
    crypto::require(X509_NAME_add_entry_by_txt(X509_get_subject_name(x), "CN", MBSTRING_UTF8,
                                               reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1,
                                               0) == 1,
                    "cannot set the subject '" + commonName + "'");
    crypto::require(X509_set_pubkey(x, key.native()) == 1, "cannot set the public key");
    return cert;
}

}  // namespace

std::string isoTime(std::time_t t) {
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &tm);
    return text;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw ConfigError(path + ": cannot be read: " + std::strerror(errno));
    std::ostringstream text;
    text << in.rdbuf();
    if (text.str().empty()) throw ConfigError(path + ": is empty");
    return text.str();
}

PrivateKey PrivateKey::generate() {
    crypto::initialise();
    std::shared_ptr<EVP_PKEY> key(EVP_EC_gen("prime256v1"), EVP_PKEY_free);
    crypto::require(key != nullptr, "cannot generate an EC key");
    return PrivateKey(std::move(key));
}

PrivateKey PrivateKey::fromPem(const std::string& pem, const std::string& origin) {
    crypto::initialise();
    auto in = crypto::reading(pem);
    // An empty password: a key behind one is refused instead of prompting on the terminal.
    std::shared_ptr<EVP_PKEY> key(PEM_read_bio_PrivateKey(in.get(), nullptr, nullptr, const_cast<char*>("")),
                                  EVP_PKEY_free);
    crypto::clearErrors();
    if (!key) throw ConfigError(origin + ": not a PEM private key without a password");
    return PrivateKey(std::move(key));
}

std::string PrivateKey::pem() const {
    auto out = crypto::memory();
    crypto::require(PEM_write_bio_PrivateKey(out.get(), native(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
                    "cannot write a private key");
    return crypto::contentOf(out.get());
}

Certificate::Certificate(x509_st* owned) : m_cert(owned, X509_free) {}

Certificate Certificate::fromPem(const std::string& pem, const std::string& origin) {
    crypto::initialise();
    auto in = crypto::reading(pem);
    X509* cert = PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr);
    crypto::clearErrors();
    if (!cert) throw ConfigError(origin + ": not a PEM certificate");
    return Certificate(cert);
}

std::string Certificate::pem() const {
    auto out = crypto::memory();
    crypto::require(PEM_write_bio_X509(out.get(), native()) == 1, "cannot write a certificate");
    return crypto::contentOf(out.get());
}

std::string Certificate::subject() const {
    auto out = crypto::memory();
    crypto::require(X509_NAME_print_ex(out.get(), X509_get_subject_name(native()), 0, XN_FLAG_RFC2253) >= 0,
                    "cannot print a subject name");
    return crypto::contentOf(out.get());
}

Validity Certificate::validity() const {
    return {timeOf(X509_get0_notBefore(native())), timeOf(X509_get0_notAfter(native()))};
}

bool Certificate::signedBy(const Certificate& issuer) const {
    EVP_PKEY* key = X509_get0_pubkey(issuer.native());
    const bool ok = key != nullptr && X509_verify(native(), key) == 1;
    crypto::clearErrors();
    return ok;
}

bool Certificate::belongsTo(const PrivateKey& key) const {
    const bool ok = X509_check_private_key(native(), key.native()) == 1;
    crypto::clearErrors();
    return ok;
}

Authority Authority::make(const std::string& commonName, const Validity& validity) {
    PrivateKey key = PrivateKey::generate();
    Certificate cert = startCertificate(key, commonName, validity);
    X509* x = cert.native();
    crypto::require(X509_set_issuer_name(x, X509_get_subject_name(x)) == 1, "cannot set the issuer");
    addExtension(x, x, NID_basic_constraints, "critical,CA:TRUE");
    // digitalSignature too: the CA signs the governance and permissions documents itself.
    addExtension(x, x, NID_key_usage, "critical,keyCertSign,cRLSign,digitalSignature");
    addExtension(x, x, NID_subject_key_identifier, "hash");
    addExtension(x, x, NID_authority_key_identifier, "keyid:always");
    crypto::require(X509_sign(x, key.native(), EVP_sha256()) > 0, "cannot sign the CA certificate");
    return {std::move(cert), std::move(key)};
}

Authority Authority::read(const std::string& certificatePath, const std::string& keyPath) {
    Authority ca{Certificate::read(certificatePath), PrivateKey::read(keyPath)};
    if (!ca.certificate.belongsTo(ca.key)) throw ConfigError(keyPath + ": not the key of " + certificatePath);
    return ca;
}

Certificate makeIdentityCertificate(const PrivateKey& key, const std::string& commonName, const Authority& ca,
                                    const Validity& validity) {
    Certificate cert = startCertificate(key, commonName, validity);
    X509* x = cert.native();
    X509* issuer = ca.certificate.native();
    crypto::require(X509_set_issuer_name(x, X509_get_subject_name(issuer)) == 1, "cannot set the issuer");
    addExtension(x, issuer, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(x, issuer, NID_key_usage, "critical,digitalSignature,keyAgreement");
    addExtension(x, issuer, NID_subject_key_identifier, "hash");
    addExtension(x, issuer, NID_authority_key_identifier, "keyid:always");
    crypto::require(X509_sign(x, ca.key.native(), EVP_sha256()) > 0, "cannot sign the certificate of " + commonName);
    return cert;
}

}  // namespace kelva::security
