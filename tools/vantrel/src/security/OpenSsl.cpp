#include "OpenSsl.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "vantrel/tool/Errors.h"

namespace vantrel::tool::security {

std::string cryptoError(const std::string& what) {
    std::string reasons;
    char text[256];
    while (const unsigned long code = ERR_get_error()) {
        ERR_error_string_n(code, text, sizeof text);
        reasons += (reasons.empty() ? "" : "; ") + std::string(text);
    }
    return reasons.empty() ? what : what + ": " + reasons;
}

void require(bool ok, const std::string& what) {
    if (!ok) throw std::runtime_error(cryptoError(what));
}

KeyPtr generateKey() {
    KeyPtr key(EVP_EC_gen("prime256v1"));
    require(key != nullptr, "cannot generate an EC key");
    return key;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw InputError(path + ": cannot read (" + std::strerror(errno) + ")");
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

namespace {

BioPtr memoryOf(const std::string& content) {
    BioPtr bio(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    require(bio != nullptr, "cannot allocate a memory BIO");
    return bio;
}

std::string drain(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return std::string(data, static_cast<std::size_t>(size));
}

}  // namespace

KeyPtr readKey(const std::string& path) {
    const std::string pem = readFile(path);
    auto bio = memoryOf(pem);
    KeyPtr key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
    if (!key) throw InputError(cryptoError(path + ": not a PEM private key"));
    return key;
}

CertPtr readCertificate(const std::string& path) {
    const std::string pem = readFile(path);
    auto bio = memoryOf(pem);
    CertPtr cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (!cert) throw InputError(cryptoError(path + ": not a PEM certificate"));
    return cert;
}

void makeDirectory(const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) throw InputError(directory + ": cannot make the directory (" + error.message() + ")");
}

void writeFile(const std::string& path, const std::string& content, bool force, bool secret) {
    const int flags = O_WRONLY | O_CREAT | (force ? O_TRUNC : O_EXCL);
    const int fd = ::open(path.c_str(), flags, secret ? 0600 : 0644);
    if (fd < 0) {
        if (errno == EEXIST) throw InputError(path + ": exists (--force replaces it)");
        throw InputError(path + ": cannot write (" + std::strerror(errno) + ")");
    }
    // A replaced key keeps no wider mode than a new one.
    if (secret && ::fchmod(fd, 0600) != 0) {
        ::close(fd);
        throw std::runtime_error(path + ": cannot restrict access (" + std::strerror(errno) + ")");
    }
    std::size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = ::write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const std::string reason = std::strerror(errno);
            ::close(fd);
            throw std::runtime_error(path + ": cannot write (" + reason + ")");
        }
        done += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) throw std::runtime_error(path + ": cannot write (" + std::strerror(errno) + ")");
}

std::string keyPem(EVP_PKEY* key) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    require(bio && PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1,
            "cannot write a private key");
    return drain(bio.get());
}

std::string certificatePem(X509* cert) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    require(bio && PEM_write_bio_X509(bio.get(), cert) == 1, "cannot write a certificate");
    return drain(bio.get());
}

std::string subjectName(X509* cert) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    require(bio && X509_NAME_print_ex(bio.get(), X509_get_subject_name(cert), 0, XN_FLAG_RFC2253) >= 0,
            "cannot print a subject name");
    return drain(bio.get());
}

}  // namespace vantrel::tool::security
