#pragma once
// S/MIME signatures of the access-control documents, in the form the DDS layer's access control reads:
// multipart/signed, the document as text/plain, the signer's certificate included.
#include <string>

#include "Certificates.h"

namespace vantrel::tool::security {

std::string signDocument(const std::string& document, const Authority& ca);

// The document inside a signed file, if the signature verifies against `caCertificate` (the signer's
// certificate chains to it and the content is unchanged). Otherwise InputError naming `path`.
std::string verifyDocument(const std::string& path, X509* caCertificate);

}  // namespace vantrel::tool::security
