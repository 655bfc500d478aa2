// vantrel security ca | identity | governance | permissions: one file set each, made by the toolkit's
// security module.
#include <filesystem>
#include <iostream>

#include "Files.h"
#include "Grants.h"
#include "Options.h"
#include "kelva/security/SignedDocument.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Security.h"

namespace vantrel::tool {

using namespace security;
namespace ks = kelva::security;

namespace {

// Refuses before anything is written, so a half-made set never replaces a whole one.
void requireAbsent(const std::vector<std::string>& paths, bool force) {
    if (force) return;
    for (const auto& path : paths)
        if (std::filesystem::exists(path)) throw InputError(path + ": exists (--force replaces it)");
}

}  // namespace

int securityCa(const SecurityCaOptions& o) {
    const ks::Validity period = periodOf(o.validity);
    if (o.name.empty()) throw InputError("--name: the CA needs a name");
    requireAbsent({caCertificatePath(o.output), caKeyPath(o.output)}, o.force);
    makeDirectory(o.output);
    const ks::Authority ca = ks::Authority::make(o.name, period);
    writeFile(caKeyPath(o.output), ca.key.pem(), o.force, true);
    writeFile(caCertificatePath(o.output), ca.certificate.pem(), o.force);
    std::cout << "CA '" << o.name << "' valid until " << ks::isoTime(period.notAfter) << "Z: "
              << caCertificatePath(o.output) << ", " << caKeyPath(o.output) << "\n";
    return 0;
}

int securityIdentity(const SecurityIdentityOptions& o) {
    requireIdentityName(o.name);
    const ks::Validity period = periodOf(o.validity);
    const ks::Authority ca = loadAuthority(o.ca);
    const std::string certPath = o.output + "/" + o.name + ".pem";
    const std::string keyPath = o.output + "/" + o.name + ".key";
    requireAbsent({certPath, keyPath}, o.force);
    makeDirectory(o.output);
    const ks::PrivateKey key = ks::PrivateKey::generate();
    const ks::Certificate cert = ks::makeIdentityCertificate(key, o.name, ca, period);
    writeFile(keyPath, key.pem(), o.force, true);
    writeFile(certPath, cert.pem(), o.force);
    std::cout << "identity " << cert.subject() << " valid until " << ks::isoTime(period.notAfter) << "Z: " << certPath
              << ", " << keyPath << "\n";
    return 0;
}

int securityGovernance(const SecurityGovernanceOptions& o) {
    const auto domains = parseDomains(o.domains);
    requireProtectionKind(o.rtpsProtection);
    const std::string document = ks::governanceXml(domains, o.rtpsProtection);
    const ks::Authority ca = loadAuthority(o.ca);
    requireAbsent({o.output}, o.force);
    writeFile(o.output, ks::signDocument(document, ca), o.force);
    std::cout << "governance: " << o.output << "\n";
    return 0;
}

int securityPermissions(const SecurityPermissionsOptions& o) {
    requireIdentityName(o.name);
    const auto grants = parseGrants(o.grants);
    const auto domains = parseDomains(o.domains);
    const ks::Validity period = periodOf(o.validity);
    const ks::Authority ca = loadAuthority(o.ca);
    requireAbsent({o.output}, o.force);
    std::string note = o.name;
    for (const auto& g : grants) note += " " + grantText(g);
    TopicAccess topics = topicAccess(grants, kelva::config::Config::fromEnvironment());
    const std::size_t published = topics.publish.size(), subscribed = topics.subscribe.size();
    const std::string document = ks::permissionsXml(
        {"CN=" + o.name, period, domains, std::move(topics.publish), std::move(topics.subscribe)}, note);
    writeFile(o.output, ks::signDocument(document, ca), o.force);
    std::cout << "permissions of CN=" << o.name << " (" << published << " topics to publish, " << subscribed
              << " to subscribe) valid until " << ks::isoTime(period.notAfter) << "Z: " << o.output << "\n";
    return 0;
}

}  // namespace vantrel::tool
