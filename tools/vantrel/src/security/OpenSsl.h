#pragma once
// Owning handles of libcrypto objects, and the PEM files the security verbs read and write.
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace vantrel::tool::security {

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* p) const { Free(p); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using CertPtr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;
using Pkcs7Ptr = std::unique_ptr<PKCS7, Deleter<PKCS7, PKCS7_free>>;
using StorePtr = std::unique_ptr<X509_STORE, Deleter<X509_STORE, X509_STORE_free>>;

// "<what>: <libcrypto's reasons>", emptying libcrypto's error queue.
std::string cryptoError(const std::string& what);
// Throws std::runtime_error(cryptoError(what)) when `ok` is false: libcrypto refusing well-formed input is a
// fault of the tool's or the library's, not bad input.
void require(bool ok, const std::string& what);

// A new EC key on prime256v1 (the curve the DDS layer's authentication accepts besides RSA 2048).
KeyPtr generateKey();

// Reading: a missing or malformed file is bad input (InputError naming the file).
std::string readFile(const std::string& path);
KeyPtr readKey(const std::string& path);
CertPtr readCertificate(const std::string& path);

// Writing: an existing file is refused unless `force` (InputError naming it); keys are readable by the
// owner only. makeDirectory makes missing parents too.
void makeDirectory(const std::string& directory);
void writeFile(const std::string& path, const std::string& content, bool force, bool secret = false);
std::string keyPem(EVP_PKEY* key);
std::string certificatePem(X509* cert);

// The certificate's subject as the access-control documents spell it ("CN=display", RFC 2253 order).
std::string subjectName(X509* cert);

}  // namespace vantrel::tool::security
