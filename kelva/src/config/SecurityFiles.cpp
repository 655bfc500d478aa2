// The checks of a [security] section's files before any participant uses them: the DDS layer refuses bad
// material too, but only with a retcode and a line in its own log; here the error names the file.
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>
#include <string>

#include "kelva/config/Participant.h"

namespace kelva::config {
namespace {

template <typename T, void (*Free)(T*)>
struct Freer {
    void operator()(T* p) const { Free(p); }
};
using Bio = std::unique_ptr<BIO, Freer<BIO, BIO_free_all>>;
using Cert = std::unique_ptr<X509, Freer<X509, X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY, EVP_PKEY_free>>;
using Pkcs7 = std::unique_ptr<PKCS7, Freer<PKCS7, PKCS7_free>>;
using Store = std::unique_ptr<X509_STORE, Freer<X509_STORE, X509_STORE_free>>;

[[noreturn]] void refuse(const std::string& file, const std::string& what) {
    ERR_clear_error();
    throw ConfigError(file + ": " + what);
}

std::string contents(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) refuse(file, std::string("cannot be read: ") + std::strerror(errno));
    std::ostringstream text;
    text << in.rdbuf();
    if (text.str().empty()) refuse(file, "is empty");
    return text.str();
}

Bio memory(const std::string& text) { return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size()))); }

std::string timeText(const ASN1_TIME* t) {
    Bio out(BIO_new(BIO_s_mem()));
    ASN1_TIME_print(out.get(), t);
    char* data = nullptr;
    const long n = BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<std::size_t>(n));
}

// A PEM certificate that is valid now.
Cert certificate(const std::string& file) {
    const std::string text = contents(file);
    Bio in = memory(text);
    Cert cert(PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr));
    if (!cert) refuse(file, "not a PEM certificate");
    if (X509_cmp_current_time(X509_get0_notBefore(cert.get())) > 0)
        refuse(file, "certificate not valid before " + timeText(X509_get0_notBefore(cert.get())));
    if (X509_cmp_current_time(X509_get0_notAfter(cert.get())) < 0)
        refuse(file, "certificate expired on " + timeText(X509_get0_notAfter(cert.get())));
    return cert;
}

void signedBy(const X509* cert, const std::string& file, const X509* ca, const std::string& caFile) {
    EVP_PKEY* caKey = X509_get0_pubkey(ca);
    if (!caKey || X509_verify(const_cast<X509*>(cert), caKey) != 1)
        refuse(file, "certificate not signed by the identity CA " + caFile);
}

void keyOf(const std::string& file, const X509* cert, const std::string& certFile) {
    const std::string text = contents(file);
    Bio in = memory(text);
    Key key(PEM_read_bio_PrivateKey(in.get(), nullptr, nullptr, const_cast<char*>("")));
    if (!key) refuse(file, "not a PEM private key without a password");
    if (X509_check_private_key(cert, key.get()) != 1)
        refuse(file, "private key does not belong to the certificate " + certFile);
}

// The content of an S/MIME document signed by the CA.
std::string signedContent(const std::string& file, X509* ca, const std::string& caFile) {
    const std::string text = contents(file);
    Bio in = memory(text);
    BIO* detached = nullptr;  // the signed text of a multipart (detached) document
    Pkcs7 p7(SMIME_read_PKCS7(in.get(), &detached));
    Bio signedText(detached);
    if (!p7) refuse(file, "not an S/MIME signed document");
    Store store(X509_STORE_new());
    X509_STORE_add_cert(store.get(), ca);
    Bio out(BIO_new(BIO_s_mem()));
    if (PKCS7_verify(p7.get(), nullptr, store.get(), signedText.get(), out.get(), PKCS7_TEXT) != 1)
        refuse(file, "signature does not verify against the permissions CA " + caFile + " (tampered, or signed by another CA)");
    char* data = nullptr;
    const long n = BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<std::size_t>(n));
}

// Permissions grant until <not_after>YYYY-MM-DDTHH:MM:SS</not_after>; an expired grant is refused here.
void permissionsCurrent(const std::string& file, const std::string& xml) {
    static const std::regex notAfter("<not_after>\\s*([0-9]{4})-([0-9]{2})-([0-9]{2})T([0-9]{2}):([0-9]{2}):([0-9]{2})");
    for (std::sregex_iterator it(xml.begin(), xml.end(), notAfter), end; it != end; ++it) {
        std::tm when{};
        when.tm_year = std::stoi((*it)[1]) - 1900;
        when.tm_mon = std::stoi((*it)[2]) - 1;
        when.tm_mday = std::stoi((*it)[3]);
        when.tm_hour = std::stoi((*it)[4]);
        when.tm_min = std::stoi((*it)[5]);
        when.tm_sec = std::stoi((*it)[6]);
        if (timegm(&when) < std::time(nullptr)) refuse(file, "permissions expired on " + it->str().substr(11));
    }
}

}  // namespace

void checkSecurityFiles(const Security& s) {
    // libcrypto must not clean up at exit before the sessions that outlive main() (the session factory's)
    // have stopped the DDS layer's threads, which still encrypt with it: no exit handler of its own.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    Cert identityCa = certificate(s.identityCa);
    Cert identity = certificate(s.identityCertificate);
    signedBy(identity.get(), s.identityCertificate, identityCa.get(), s.identityCa);
    keyOf(s.privateKey, identity.get(), s.identityCertificate);
    Cert permissionsCa = certificate(s.permissionsCa);
    signedContent(s.governance, permissionsCa.get(), s.permissionsCa);
    permissionsCurrent(s.permissions, signedContent(s.permissions, permissionsCa.get(), s.permissionsCa));
}

}  // namespace kelva::config
