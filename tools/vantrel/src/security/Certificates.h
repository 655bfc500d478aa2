#pragma once
// The certificate authority and the identities it certifies.
#include <ctime>
#include <string>

#include "OpenSsl.h"
#include "vantrel/tool/Security.h"

namespace vantrel::tool::security {

// A validity period in UTC seconds.
struct Period {
    std::time_t notBefore;
    std::time_t notAfter;
};
// From the options: bad dates and day counts below 1 are InputError.
Period periodOf(const ValidityOptions& o);
// "2031-05-01T09:30:00" (UTC, the form the permissions document takes).
std::string isoTime(std::time_t t);

// The CA as stored: DIR/ca.pem (self-signed certificate) and DIR/ca.key.
struct Authority {
    CertPtr certificate;
    KeyPtr key;
    std::string certificatePath;
};
std::string caCertificatePath(const std::string& directory);
std::string caKeyPath(const std::string& directory);
// Loads and checks that the key is the certificate's (InputError naming the file otherwise).
Authority loadAuthority(const std::string& directory);

// Identity names are also file names: letters, digits, '.', '_', '-', not starting with '.'.
void requireIdentityName(const std::string& name);

// A self-signed CA certificate (CN=name) that may sign certificates and S/MIME documents.
CertPtr makeCaCertificate(EVP_PKEY* key, const std::string& name, const Period& period);
// An end-entity certificate with subject CN=name, signed by the CA.
CertPtr makeIdentityCertificate(EVP_PKEY* key, const std::string& name, const Authority& ca, const Period& period);

}  // namespace vantrel::tool::security
