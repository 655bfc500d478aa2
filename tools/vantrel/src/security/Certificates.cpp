#include "Certificates.h"

#include <openssl/bn.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <stdexcept>

#include "vantrel/tool/Errors.h"

namespace vantrel::tool::security {

namespace {

constexpr long kMaxDays = 36500;

std::time_t parseUtc(const std::string& text) {
    std::tm tm{};
    int consumed = 0;
    const bool dateOnly = std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &consumed) == 3 &&
                          static_cast<std::size_t>(consumed) == text.size();
    const bool dateTime =
        !dateOnly && std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                                 &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &consumed) == 6 &&
        (static_cast<std::size_t>(consumed) == text.size() ||
         (static_cast<std::size_t>(consumed) + 1 == text.size() && text.back() == 'Z'));
    if (!dateOnly && !dateTime)
        throw InputError("--not-before '" + text + "': give a UTC time as YYYY-MM-DD or YYYY-MM-DDTHH:MM:SS");
    const std::tm given = tm;
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    const std::time_t t = timegm(&tm);
    // timegm normalises out-of-range fields (February 30th): such a date was not a real one.
    std::tm back{};
    gmtime_r(&t, &back);
    if (t < 0 || back.tm_mon != given.tm_mon - 1 || back.tm_mday != given.tm_mday || back.tm_hour != given.tm_hour || back.tm_min != given.tm_min ||
        back.tm_sec != given.tm_sec)
        throw InputError("--not-before '" + text + "': not a valid UTC time");
    return t;
}

void addExtension(X509* cert, X509* issuer, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    require(extension != nullptr, std::string("cannot make the extension ") + OBJ_nid2sn(nid));
    const int added = X509_add_ext(cert, extension, -1);
    X509_EXTENSION_free(extension);
    require(added == 1, std::string("cannot add the extension ") + OBJ_nid2sn(nid));
}

// A certificate with everything but the issuer's name, the extensions and the signature.
CertPtr startCertificate(EVP_PKEY* key, const std::string& name, const Period& period) {
    CertPtr cert(X509_new());
    require(cert != nullptr, "cannot allocate a certificate");
    require(X509_set_version(cert.get(), X509_VERSION_3) == 1, "cannot set the certificate version");
    // A random 127-bit serial: unique without a serial file next to the CA.
    std::unique_ptr<BIGNUM, Deleter<BIGNUM, BN_free>> serial(BN_new());
    require(serial && BN_rand(serial.get(), 127, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
                BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(cert.get())) != nullptr,
            "cannot make a serial number");
    require(ASN1_TIME_set(X509_getm_notBefore(cert.get()), period.notBefore) != nullptr &&
                ASN1_TIME_set(X509_getm_notAfter(cert.get()), period.notAfter) != nullptr,
            "cannot set the validity");
    X509_NAME* subject = X509_get_subject_name(cert.get());
    require(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0) == 1,
            "cannot set the subject '" + name + "'");
    require(X509_set_pubkey(cert.get(), key) == 1, "cannot set the public key");
    return cert;
}

}  // namespace

Period periodOf(const ValidityOptions& o) {
    if (o.days < 1 || o.days > kMaxDays)
        throw InputError("--days " + std::to_string(o.days) + ": give 1 to " + std::to_string(kMaxDays));
    const std::time_t from = o.notBefore.empty() ? std::time(nullptr) : parseUtc(o.notBefore);
    return {from, from + static_cast<std::time_t>(o.days) * 86400};
}

std::string isoTime(std::time_t t) {
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &tm);
    return text;
}

std::string caCertificatePath(const std::string& directory) { return directory + "/ca.pem"; }
std::string caKeyPath(const std::string& directory) { return directory + "/ca.key"; }

Authority loadAuthority(const std::string& directory) {
    Authority ca{readCertificate(caCertificatePath(directory)), readKey(caKeyPath(directory)),
                 caCertificatePath(directory)};
    if (X509_check_private_key(ca.certificate.get(), ca.key.get()) != 1)
        throw InputError(cryptoError(caKeyPath(directory) + ": not the key of " + ca.certificatePath));
    return ca;
}

void requireIdentityName(const std::string& name) {
    bool ok = !name.empty() && name.front() != '.' && name.size() <= 64;
    for (const char c : name)
        ok = ok && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                    c == '_' || c == '-');
    if (!ok)
        throw InputError("identity name '" + name +
                         "': use 1 to 64 letters, digits, '.', '_' or '-', not starting with '.'");
}

CertPtr makeCaCertificate(EVP_PKEY* key, const std::string& name, const Period& period) {
    CertPtr cert = startCertificate(key, name, period);
    require(X509_set_issuer_name(cert.get(), X509_get_subject_name(cert.get())) == 1, "cannot set the issuer");
    addExtension(cert.get(), cert.get(), NID_basic_constraints, "critical,CA:TRUE");
    // digitalSignature too: the CA signs the governance and permissions documents itself.
    addExtension(cert.get(), cert.get(), NID_key_usage, "critical,keyCertSign,cRLSign,digitalSignature");
    addExtension(cert.get(), cert.get(), NID_subject_key_identifier, "hash");
    addExtension(cert.get(), cert.get(), NID_authority_key_identifier, "keyid:always");
    require(X509_sign(cert.get(), key, EVP_sha256()) > 0, "cannot sign the CA certificate");
    return cert;
}

CertPtr makeIdentityCertificate(EVP_PKEY* key, const std::string& name, const Authority& ca, const Period& period) {
    CertPtr cert = startCertificate(key, name, period);
    require(X509_set_issuer_name(cert.get(), X509_get_subject_name(ca.certificate.get())) == 1,
            "cannot set the issuer");
    addExtension(cert.get(), ca.certificate.get(), NID_basic_constraints, "critical,CA:FALSE");
    addExtension(cert.get(), ca.certificate.get(), NID_key_usage, "critical,digitalSignature,keyAgreement");
    addExtension(cert.get(), ca.certificate.get(), NID_subject_key_identifier, "hash");
    addExtension(cert.get(), ca.certificate.get(), NID_authority_key_identifier, "keyid:always");
    require(X509_sign(cert.get(), ca.key.get(), EVP_sha256()) > 0, "cannot sign the certificate of " + name);
    return cert;
}

}  // namespace vantrel::tool::security
