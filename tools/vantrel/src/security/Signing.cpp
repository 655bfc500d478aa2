#include "Signing.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include "vantrel/tool/Errors.h"

namespace vantrel::tool::security {

std::string signDocument(const std::string& document, const Authority& ca) {
    // Streaming: the digest is computed while the signed message is written, from one pass over the text.
    constexpr int flags = PKCS7_DETACHED | PKCS7_TEXT | PKCS7_STREAM;
    BioPtr in(BIO_new_mem_buf(document.data(), static_cast<int>(document.size())));
    require(in != nullptr, "cannot allocate a memory BIO");
    Pkcs7Ptr signature(PKCS7_sign(ca.certificate.get(), ca.key.get(), nullptr, in.get(), flags));
    require(signature != nullptr, "cannot sign with " + ca.certificatePath);
    BioPtr out(BIO_new(BIO_s_mem()));
    require(out && SMIME_write_PKCS7(out.get(), signature.get(), in.get(), flags) == 1, "cannot write the S/MIME form");
    char* data = nullptr;
    const long size = BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

std::string verifyDocument(const std::string& path, X509* caCertificate) {
    const std::string signedText = readFile(path);
    BioPtr in(BIO_new_mem_buf(signedText.data(), static_cast<int>(signedText.size())));
    require(in != nullptr, "cannot allocate a memory BIO");
    BIO* content = nullptr;
    Pkcs7Ptr signature(SMIME_read_PKCS7(in.get(), &content));
    BioPtr contentOwner(content);
    if (!signature) throw InputError(cryptoError(path + ": not an S/MIME signed document"));
    StorePtr store(X509_STORE_new());
    require(store && X509_STORE_add_cert(store.get(), caCertificate) == 1, "cannot make a certificate store");
    BioPtr out(BIO_new(BIO_s_mem()));
    require(out != nullptr, "cannot allocate a memory BIO");
    if (PKCS7_verify(signature.get(), nullptr, store.get(), content, out.get(), PKCS7_TEXT) != 1)
        throw InputError(cryptoError(path + ": signature does not verify against the permissions CA"));
    char* data = nullptr;
    const long size = BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

}  // namespace vantrel::tool::security
