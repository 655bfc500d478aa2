#pragma once
// The governance and permissions documents of DDS security: made as the DDS layer's access control reads
// them, and read back (with an XML parser) for what the checks compare.
#include <set>
#include <string>
#include <vector>

#include "kelva/Export.h"
#include "kelva/security/KeyMaterial.h"

namespace kelva::security {

// Domain ids min..max (one id: min == max).
struct DomainRange {
    long min = 0;
    long max = 0;
};

// One domain rule over `domains`: authenticated participants only, join access control, discovery and
// liveliness encrypted, and one rule for every topic ('*'): access control on, metadata and data
// encrypted. `rtpsProtection` is NONE, SIGN or ENCRYPT (std::invalid_argument otherwise).
KELVA_EXPORT std::string governanceXml(const std::vector<DomainRange>& domains, const std::string& rtpsProtection);

// One grant: what `subject` may publish and subscribe (topic names or patterns, in any partition) in
// `domains` during `validity`; everything else is denied.
struct PermissionsGrant {
    std::string subject;  // as the identity certificate's subject reads in RFC 2253 form: "CN=display"
    Validity validity;
    std::vector<DomainRange> domains;
    std::set<std::string> publish;
    std::set<std::string> subscribe;
};
// `note` becomes a comment at the top (who, what for).
KELVA_EXPORT std::string permissionsXml(const PermissionsGrant& grant, const std::string& note);

// What the checks read of a permissions document: each grant's subject and validity.
struct GrantTerms {
    std::string subject;
    Validity validity;
};
// ConfigError beginning with `origin` when the text is not XML, not a permissions document, or a grant
// lacks its subject or a readable validity.
KELVA_EXPORT std::vector<GrantTerms> readGrants(const std::string& xml, const std::string& origin);
// ConfigError beginning with `origin` when the text is not XML or not a governance document.
KELVA_EXPORT void readGovernance(const std::string& xml, const std::string& origin);

// Whether two subject names are the same name as the DDS layer compares them: the same attributes in any
// order, each exactly as written ("CN=a,O=b" is "O=b,CN=a"; "CN=a, O=b" and "cn=a,O=b" are other names).
KELVA_EXPORT bool sameSubject(const std::string& a, const std::string& b);

}  // namespace kelva::security
