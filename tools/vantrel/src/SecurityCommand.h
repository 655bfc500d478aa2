#pragma once
// The command line of `vantrel security ...`: its sub-verbs and their options.
#include <CLI/CLI.hpp>

#include "vantrel/tool/Security.h"

namespace vantrel::tool {

class SecurityCommand {
public:
    explicit SecurityCommand(CLI::App& app);
    bool chosen() const { return m_security->parsed(); }
    int run() const;

private:
    CLI::App* m_security;
    CLI::App* m_ca;
    CLI::App* m_identity;
    CLI::App* m_governance;
    CLI::App* m_permissions;
    CLI::App* m_setup;
    CLI::App* m_check;
    SecurityCaOptions m_caO;
    SecurityIdentityOptions m_identityO;
    SecurityGovernanceOptions m_governanceO;
    SecurityPermissionsOptions m_permissionsO;
    SecuritySetupOptions m_setupO;
    SecurityCheckOptions m_checkO;
};

}  // namespace vantrel::tool
