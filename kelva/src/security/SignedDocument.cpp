#include "kelva/security/SignedDocument.h"

#include <openssl/pem.h>

#include "Libcrypto.h"
#include "kelva/config/Config.h"

namespace kelva::security {

std::string signDocument(const std::string& document, const Authority& signer) {
    crypto::initialise();
    // Streaming: the digest is computed while the signed message is written, from one pass over the text.
    constexpr int flags = PKCS7_DETACHED | PKCS7_TEXT | PKCS7_STREAM;
    auto in = crypto::reading(document);
    crypto::Pkcs7Ptr signature(
        PKCS7_sign(signer.certificate.native(), signer.key.native(), nullptr, in.get(), flags));
    crypto::require(signature != nullptr, "cannot sign with the CA " + signer.certificate.subject());
    auto out = crypto::memory();
    crypto::require(SMIME_write_PKCS7(out.get(), signature.get(), in.get(), flags) == 1,
                    "cannot write the S/MIME form");
    return crypto::contentOf(out.get());
}

namespace {

// The subject of the certificate that signed, when it is in the message and not the CA's or certified by
// it: a document of another authority, told apart from a changed one.
std::string foreignSigner(PKCS7* signature, const Certificate& ca) {
    STACK_OF(X509)* signers = PKCS7_get0_signers(signature, nullptr, 0);
    std::string foreign;
    if (signers && sk_X509_num(signers) > 0) {
        X509* signer = sk_X509_value(signers, 0);
        X509_up_ref(signer);
        const Certificate certificate(signer);
        if (X509_cmp(signer, ca.native()) != 0 && !certificate.signedBy(ca)) foreign = certificate.subject();
    }
    sk_X509_free(signers);
    crypto::clearErrors();
    return foreign;
}

}  // namespace

std::string verifiedDocument(const std::string& signedText, const std::string& origin, const Certificate& ca,
                             const std::string& caOrigin) {
    crypto::initialise();
    auto in = crypto::reading(signedText);
    BIO* detached = nullptr;  // the signed text of a multipart (detached) document
    crypto::Pkcs7Ptr signature(SMIME_read_PKCS7(in.get(), &detached));
    crypto::BioPtr content(detached);
    crypto::clearErrors();
    if (!signature || !PKCS7_type_is_signed(signature.get()))
        throw config::ConfigError(origin + ": not an S/MIME signed document");
    const std::string foreign = foreignSigner(signature.get(), ca);
    if (!foreign.empty())
        throw config::ConfigError(origin + ": signed by another CA than the permissions CA " + caOrigin + " (signer " +
                                  foreign + ")");
    crypto::StorePtr store(X509_STORE_new());
    crypto::require(store && X509_STORE_add_cert(store.get(), ca.native()) == 1, "cannot make a certificate store");
    auto out = crypto::memory();
    const bool verified = PKCS7_verify(signature.get(), nullptr, store.get(), content.get(), out.get(), PKCS7_TEXT) == 1;
    crypto::clearErrors();
    if (!verified)
        throw config::ConfigError(origin + ": signature does not verify against the permissions CA " + caOrigin +
                                  " (changed after signing)");
    return crypto::contentOf(out.get());
}

}  // namespace kelva::security
