#include "KeyMaterial.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>

namespace kelva::test {
namespace {

struct BioFree {
    void operator()(BIO* b) const { BIO_free_all(b); }
};
struct KeyFree {
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
struct CertFree {
    void operator()(X509* c) const { X509_free(c); }
};
using Bio = std::unique_ptr<BIO, BioFree>;
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
using Cert = std::unique_ptr<X509, CertFree>;

void need(bool ok, const char* what) {
    if (!ok) throw std::runtime_error(std::string("key material: ") + what);
}

std::string text(BIO* b) {
    char* data = nullptr;
    const long n = BIO_get_mem_data(b, &data);
    return std::string(data, static_cast<std::size_t>(n));
}

Key newKey() {
    Key key(EVP_EC_gen("prime256v1"));
    need(key != nullptr, "EC key");
    return key;
}

Key readKey(const std::string& pem) {
    Bio in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    Key key(PEM_read_bio_PrivateKey(in.get(), nullptr, nullptr, nullptr));
    need(key != nullptr, "read key");
    return key;
}

Cert readCert(const std::string& pem) {
    Bio in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    Cert cert(PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr));
    need(cert != nullptr, "read certificate");
    return cert;
}

void extension(X509* cert, X509* issuer, int nid, const char* value) {
    X509V3_CTX ctx;
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
    need(ext != nullptr, "extension");
    X509_add_ext(cert, ext, -1);
    X509_EXTENSION_free(ext);
}

KeyPair certify(const std::string& commonName, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey, long fromHours,
              long toHours, bool isCa) {
    static long serial = 1;
    Cert cert(X509_new());
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), serial++);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), fromHours * 3600);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), toHours * 3600);
    X509_set_pubkey(cert.get(), key);
    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(commonName.c_str()), -1,
                               -1, 0);
    X509_set_issuer_name(cert.get(), issuer ? X509_get_subject_name(issuer) : name);
    extension(cert.get(), issuer ? issuer : cert.get(), NID_basic_constraints, isCa ? "critical,CA:TRUE" : "CA:FALSE");
    need(X509_sign(cert.get(), issuerKey, EVP_sha256()) > 0, "sign certificate");
    Bio certOut(BIO_new(BIO_s_mem())), keyOut(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(certOut.get(), cert.get());
    PEM_write_bio_PrivateKey(keyOut.get(), key, nullptr, nullptr, 0, nullptr, nullptr);
    return {text(certOut.get()), text(keyOut.get())};
}

}  // namespace

KeyPair makeCa(const std::string& commonName, int days) {
    Key key = newKey();
    return certify(commonName, key.get(), nullptr, key.get(), -1, 24L * days, true);
}

KeyPair makeIdentity(const std::string& commonName, const KeyPair& ca, long fromHours, long toHours) {
    Key key = newKey();
    Cert caCert = readCert(ca.certificate);
    Key caKey = readKey(ca.privateKey);
    return certify(commonName, key.get(), caCert.get(), caKey.get(), fromHours, toHours, false);
}

std::string signDocument(const std::string& document, const KeyPair& ca) {
    Cert caCert = readCert(ca.certificate);
    Key caKey = readKey(ca.privateKey);
    Bio in(BIO_new_mem_buf(document.data(), static_cast<int>(document.size())));
    const int flags = PKCS7_DETACHED | PKCS7_TEXT;
    PKCS7* p7 = PKCS7_sign(caCert.get(), caKey.get(), nullptr, in.get(), flags);
    need(p7 != nullptr, "sign document");
    Bio again(BIO_new_mem_buf(document.data(), static_cast<int>(document.size())));
    Bio out(BIO_new(BIO_s_mem()));
    SMIME_write_PKCS7(out.get(), p7, again.get(), flags);
    PKCS7_free(p7);
    return text(out.get());
}

std::string governanceXml() {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<dds>
  <domain_access_rules>
    <domain_rule>
      <domains><id_range><min>0</min><max>230</max></id_range></domains>
      <allow_unauthenticated_participants>false</allow_unauthenticated_participants>
      <enable_join_access_control>true</enable_join_access_control>
      <discovery_protection_kind>ENCRYPT</discovery_protection_kind>
      <liveliness_protection_kind>ENCRYPT</liveliness_protection_kind>
      <rtps_protection_kind>NONE</rtps_protection_kind>
      <topic_access_rules>
        <topic_rule>
          <topic_expression>*</topic_expression>
          <enable_discovery_protection>true</enable_discovery_protection>
          <enable_liveliness_protection>true</enable_liveliness_protection>
          <enable_read_access_control>true</enable_read_access_control>
          <enable_write_access_control>true</enable_write_access_control>
          <metadata_protection_kind>ENCRYPT</metadata_protection_kind>
          <data_protection_kind>ENCRYPT</data_protection_kind>
        </topic_rule>
      </topic_access_rules>
    </domain_rule>
  </domain_access_rules>
</dds>
)";
}

std::string permissionsXml(const std::string& subject, const std::string& notAfter) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<dds>
  <permissions>
    <grant name="test_grant">
      <subject_name>)" + subject + R"(</subject_name>
      <validity><not_before>2020-01-01T00:00:00</not_before><not_after>)" + notAfter + R"(</not_after></validity>
      <allow_rule>
        <domains><id_range><min>0</min><max>230</max></id_range></domains>
        <publish><topics><topic>*</topic></topics></publish>
        <subscribe><topics><topic>*</topic></topics></subscribe>
      </allow_rule>
      <default>DENY</default>
    </grant>
  </permissions>
</dds>
)";
}

}  // namespace kelva::test
