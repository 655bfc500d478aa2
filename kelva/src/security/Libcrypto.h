#pragma once
// The one place libcrypto is wrapped: owning handles of its objects, memory BIOs, its error queue, and its
// initialisation. Only the security module's sources include this.
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace kelva::security::crypto {

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* p) const { Free(p); }
};
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;
using Pkcs7Ptr = std::unique_ptr<PKCS7, Deleter<PKCS7, PKCS7_free>>;
using StorePtr = std::unique_ptr<X509_STORE, Deleter<X509_STORE, X509_STORE_free>>;

// Once per process, before any other call: libcrypto must not clean up at exit before the sessions that
// outlive main() (the session factory's) have stopped the DDS layer's threads, which still encrypt with
// it, so it gets no exit handler of its own.
void initialise();

// "<what>: <libcrypto's reasons>", emptying libcrypto's error queue.
std::string errorText(const std::string& what);
// Empties the error queue (a refusal of bad input says what is wrong in our words).
void clearErrors();
// Throws std::runtime_error(errorText(what)) when `ok` is false: libcrypto failing on well-formed input is
// a fault, not bad input.
void require(bool ok, const std::string& what);

// A read-only BIO over `text` (which must outlive it), and the whole content of a memory BIO.
BioPtr reading(const std::string& text);
BioPtr memory();
std::string contentOf(BIO* bio);

}  // namespace kelva::security::crypto
