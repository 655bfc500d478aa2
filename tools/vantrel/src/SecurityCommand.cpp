#include "SecurityCommand.h"

namespace vantrel::tool {

namespace {

void validityOptions(CLI::App* verb, ValidityOptions& v) {
    verb->add_option("--days", v.days, "days of validity (default " + std::to_string(v.days) + ")");
    verb->add_option("--not-before", v.notBefore, "start of validity, UTC YYYY-MM-DD[THH:MM:SS] (default now)");
}

void domainOptions(CLI::App* verb, std::vector<std::string>& domains) {
    verb->add_option("--domain,-d", domains, "domain id N or range A-B, repeatable (default 0-230)");
}

}  // namespace

SecurityCommand::SecurityCommand(CLI::App& app) {
    m_security = app.add_subcommand("security", "DDS-Security key material and access-control documents");
    m_security->require_subcommand(1);

    m_ca = m_security->add_subcommand("ca", "a certificate authority: ca.pem and ca.key in a directory");
    m_ca->add_option("-o,--output", m_caO.output, "directory")->required();
    m_ca->add_option("--name", m_caO.name, "the CA's common name (default 'vantrel CA')");
    validityOptions(m_ca, m_caO.validity);
    m_ca->add_flag("--force", m_caO.force, "replace existing files");

    m_identity = m_security->add_subcommand("identity", "an application identity: NAME.pem and NAME.key");
    m_identity->add_option("NAME", m_identityO.name, "the identity (certificate subject CN=NAME)")->required();
    m_identity->add_option("--ca", m_identityO.ca, "directory of the CA")->required();
    m_identity->add_option("-o,--output", m_identityO.output, "directory")->required();
    validityOptions(m_identity, m_identityO.validity);
    m_identity->add_flag("--force", m_identityO.force, "replace existing files");

    m_governance = m_security->add_subcommand("governance", "the signed governance document of the domains");
    m_governance->add_option("--ca", m_governanceO.ca, "directory of the CA")->required();
    m_governance->add_option("-o,--output", m_governanceO.output, "file (.p7s)")->required();
    domainOptions(m_governance, m_governanceO.domains);
    m_governance->add_option("--rtps-protection", m_governanceO.rtpsProtection,
                             "NONE, SIGN (default) or ENCRYPT: protection of whole RTPS messages");
    m_governance->add_flag("--force", m_governanceO.force, "replace an existing file");

    m_permissions = m_security->add_subcommand("permissions", "the signed permissions of an identity, by module side");
    m_permissions->add_option("NAME", m_permissionsO.name, "the identity (subject CN=NAME)")->required();
    m_permissions->add_option("--ca", m_permissionsO.ca, "directory of the CA")->required();
    m_permissions->add_option("-o,--output", m_permissionsO.output, "file (.p7s)")->required();
    m_permissions->add_option("--grant,-g", m_permissionsO.grants, "MODULE=service or MODULE=client, repeatable")
        ->required();
    domainOptions(m_permissions, m_permissionsO.domains);
    validityOptions(m_permissions, m_permissionsO.validity);
    m_permissions->add_flag("--force", m_permissionsO.force, "replace an existing file");

    m_setup = m_security->add_subcommand("setup", "CA, governance, and per application identity, permissions, TOML");
    m_setup->add_option("DIR", m_setupO.directory, "directory (its CA is kept when present)")->required();
    m_setup->add_option("--app,-a", m_setupO.apps, "NAME:MODULE=service|client[,MODULE=...], repeatable")->required();
    domainOptions(m_setup, m_setupO.domains);
    validityOptions(m_setup, m_setupO.validity);
    m_setup->add_option("--rtps-protection", m_setupO.rtpsProtection, "NONE, SIGN (default) or ENCRYPT");

    m_check = m_security->add_subcommand("check", "check the files a configuration's [security] section names");
    m_check->add_option("PATH", m_checkO.path, "a TOML file, or a directory of them")->required();
}

int SecurityCommand::run() const {
    if (m_ca->parsed()) return securityCa(m_caO);
    if (m_identity->parsed()) return securityIdentity(m_identityO);
    if (m_governance->parsed()) return securityGovernance(m_governanceO);
    if (m_permissions->parsed()) return securityPermissions(m_permissionsO);
    if (m_setup->parsed()) return securitySetup(m_setupO);
    return securityCheck(m_checkO);
}

}  // namespace vantrel::tool
