#pragma once
// The check of a [security] section's six files, one code for a session (before its participant is made)
// and for `vantrel security check`: what the DDS layer would refuse without naming a file is refused here
// first, with an error that begins with the offending file's path.
#include <ctime>
#include <string>

#include "kelva/Export.h"
#include "kelva/config/Config.h"

namespace kelva::security {

// Checks, in this order: the identity CA valid at `now`; the identity certificate valid and signed by it;
// the private key that of the certificate; the permissions CA valid; the governance and the permissions
// signed by the permissions CA and unchanged, each the document it should be; a grant of the permissions
// for the identity certificate's subject, in force at `now`. Returns that subject. Throws
// config::ConfigError "<file>: <what is wrong>".
KELVA_EXPORT std::string checkFiles(const config::Security& files, std::time_t now = std::time(nullptr));

}  // namespace kelva::security
