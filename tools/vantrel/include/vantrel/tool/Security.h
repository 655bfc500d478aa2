#pragma once
// vantrel security: the key material and the access-control documents of a secured domain (docs/security.md).
// Each verb returns the exit code; bad input (an unknown module, a file that exists, a CA directory without
// its files) throws InputError before anything is written.
#include <string>
#include <vector>

namespace vantrel::tool {

// Validity shared by certificates and permissions: from `notBefore` (UTC "YYYY-MM-DD[THH:MM:SS]"; empty:
// now) for `days` days.
struct ValidityOptions {
    std::string notBefore;
    long days = 365;
};

struct SecurityCaOptions {
    std::string output;  // directory: ca.pem, ca.key
    std::string name = "vantrel CA";
    ValidityOptions validity{"", 3650};
    bool force = false;
};
int securityCa(const SecurityCaOptions& o);

struct SecurityIdentityOptions {
    std::string name;  // the subject's CN, also the file names: NAME.pem, NAME.key
    std::string ca;    // directory of ca.pem, ca.key
    std::string output;
    ValidityOptions validity;
    bool force = false;
};
int securityIdentity(const SecurityIdentityOptions& o);

struct SecurityGovernanceOptions {
    std::string ca;
    std::string output;               // the signed document (.p7s)
    std::vector<std::string> domains; // "N" or "A-B"; empty: every domain of the default port mapping
    std::string rtpsProtection = "SIGN";
    bool force = false;
};
int securityGovernance(const SecurityGovernanceOptions& o);

struct SecurityPermissionsOptions {
    std::string name;                 // the identity: subject CN=NAME
    std::string ca;
    std::string output;               // the signed document (.p7s)
    std::vector<std::string> grants;  // "M_X=service" or "M_X=client"
    std::vector<std::string> domains;
    ValidityOptions validity;
    bool force = false;
};
int securityPermissions(const SecurityPermissionsOptions& o);

struct SecuritySetupOptions {
    std::string directory;
    std::vector<std::string> apps;  // "NAME:M_X=side,M_Y=side"
    std::vector<std::string> domains;
    ValidityOptions validity;
    std::string rtpsProtection = "SIGN";
};
int securitySetup(const SecuritySetupOptions& o);

struct SecurityCheckOptions {
    std::string path;  // a TOML file with a [security] section, or a directory of such files
};
int securityCheck(const SecurityCheckOptions& o);

}  // namespace vantrel::tool
