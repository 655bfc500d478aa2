#include "Libcrypto.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <stdexcept>

namespace kelva::security::crypto {

void initialise() {
    static const bool done = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
    if (!done) throw std::runtime_error(errorText("cannot initialise libcrypto"));
}

std::string errorText(const std::string& what) {
    std::string reasons;
    char text[256];
    while (const unsigned long code = ERR_get_error()) {
        ERR_error_string_n(code, text, sizeof text);
        reasons += (reasons.empty() ? "" : "; ") + std::string(text);
    }
    return reasons.empty() ? what : what + ": " + reasons;
}

void clearErrors() { ERR_clear_error(); }

void require(bool ok, const std::string& what) {
    if (!ok) throw std::runtime_error(errorText(what));
}

BioPtr reading(const std::string& text) {
    BioPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    require(bio != nullptr, "cannot allocate a memory BIO");
    return bio;
}

BioPtr memory() {
    BioPtr bio(BIO_new(BIO_s_mem()));
    require(bio != nullptr, "cannot allocate a memory BIO");
    return bio;
}

std::string contentOf(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : std::string();
}

}  // namespace kelva::security::crypto
