// vantrel security ca | identity | governance | permissions: one file set each, from libcrypto.
#include <filesystem>
#include <iostream>

#include "Documents.h"
#include "Signing.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Security.h"

namespace vantrel::tool {

using namespace security;

namespace {

// Refuses before anything is written, so a half-made set never replaces a whole one.
void requireAbsent(const std::vector<std::string>& paths, bool force) {
    if (force) return;
    for (const auto& path : paths)
        if (std::filesystem::exists(path)) throw InputError(path + ": exists (--force replaces it)");
}

std::vector<Grant> parseGrants(const std::vector<std::string>& texts) {
    if (texts.empty()) throw InputError("give at least one --grant MODULE=service|client");
    std::vector<Grant> grants;
    for (const auto& text : texts) grants.push_back(parseGrant(text));
    return grants;
}

}  // namespace

int securityCa(const SecurityCaOptions& o) {
    const Period period = periodOf(o.validity);
    if (o.name.empty()) throw InputError("--name: the CA needs a name");
    requireAbsent({caCertificatePath(o.output), caKeyPath(o.output)}, o.force);
    makeDirectory(o.output);
    KeyPtr key = generateKey();
    CertPtr cert = makeCaCertificate(key.get(), o.name, period);
    writeFile(caKeyPath(o.output), keyPem(key.get()), o.force, true);
    writeFile(caCertificatePath(o.output), certificatePem(cert.get()), o.force);
    std::cout << "CA '" << o.name << "' valid until " << isoTime(period.notAfter) << "Z: "
              << caCertificatePath(o.output) << ", " << caKeyPath(o.output) << "\n";
    return 0;
}

int securityIdentity(const SecurityIdentityOptions& o) {
    requireIdentityName(o.name);
    const Period period = periodOf(o.validity);
    const Authority ca = loadAuthority(o.ca);
    const std::string certPath = o.output + "/" + o.name + ".pem";
    const std::string keyPath = o.output + "/" + o.name + ".key";
    requireAbsent({certPath, keyPath}, o.force);
    makeDirectory(o.output);
    KeyPtr key = generateKey();
    CertPtr cert = makeIdentityCertificate(key.get(), o.name, ca, period);
    writeFile(keyPath, keyPem(key.get()), o.force, true);
    writeFile(certPath, certificatePem(cert.get()), o.force);
    std::cout << "identity " << subjectName(cert.get()) << " valid until " << isoTime(period.notAfter)
              << "Z: " << certPath << ", " << keyPath << "\n";
    return 0;
}

int securityGovernance(const SecurityGovernanceOptions& o) {
    const auto domains = parseDomains(o.domains);
    const std::string document = governanceXml(domains, o.rtpsProtection);
    const Authority ca = loadAuthority(o.ca);
    requireAbsent({o.output}, o.force);
    writeFile(o.output, signDocument(document, ca), o.force);
    std::cout << "governance: " << o.output << "\n";
    return 0;
}

int securityPermissions(const SecurityPermissionsOptions& o) {
    requireIdentityName(o.name);
    const auto grants = parseGrants(o.grants);
    const auto domains = parseDomains(o.domains);
    const Period period = periodOf(o.validity);
    const Authority ca = loadAuthority(o.ca);
    requireAbsent({o.output}, o.force);
    std::string note = o.name;
    for (const auto& g : grants) note += " " + grantText(g);
    const TopicAccess topics = topicAccess(grants, kelva::config::Config::fromEnvironment());
    const std::string document = permissionsXml("CN=" + o.name, period, domains, topics, note);
    writeFile(o.output, signDocument(document, ca), o.force);
    std::cout << "permissions of CN=" << o.name << " (" << topics.publish.size() << " topics to publish, "
              << topics.subscribe.size() << " to subscribe) valid until " << isoTime(period.notAfter)
              << "Z: " << o.output << "\n";
    return 0;
}

}  // namespace vantrel::tool
