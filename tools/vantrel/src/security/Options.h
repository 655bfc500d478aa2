#pragma once
// The command-line values of the security verbs, checked: bad values are InputError naming the option.
#include <string>
#include <vector>

#include "kelva/security/Documents.h"
#include "vantrel/tool/Security.h"

namespace vantrel::tool::security {

// From --not-before (UTC YYYY-MM-DD[THH:MM:SS], default now) for --days days.
kelva::security::Validity periodOf(const ValidityOptions& o);
// "N" or "A-B" each; none: 0-230, every domain the DDS layer accepts.
std::vector<kelva::security::DomainRange> parseDomains(const std::vector<std::string>& texts);
// NONE, SIGN or ENCRYPT.
void requireProtectionKind(const std::string& kind);
// Identity names are also file names: 1 to 64 letters, digits, '.', '_', '-', not starting with '.'.
void requireIdentityName(const std::string& name);

}  // namespace vantrel::tool::security
