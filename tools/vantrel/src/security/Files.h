#pragma once
// The files the security verbs write, and the CA directory they sign with.
#include <string>

#include "kelva/security/KeyMaterial.h"

namespace vantrel::tool::security {

// Missing parents are made too.
void makeDirectory(const std::string& directory);
// An existing file is refused unless `force` (InputError naming it); keys are readable by the owner only.
void writeFile(const std::string& path, const std::string& content, bool force, bool secret = false);

// The CA as stored: DIR/ca.pem (self-signed certificate) and DIR/ca.key.
std::string caCertificatePath(const std::string& directory);
std::string caKeyPath(const std::string& directory);
// Loads and checks that the key is the certificate's (an error naming the file otherwise).
kelva::security::Authority loadAuthority(const std::string& directory);

}  // namespace vantrel::tool::security
