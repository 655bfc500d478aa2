// vantrel security setup: a CA (kept when DIR has one), the governance, and per application its identity,
// permissions and a KELVA_CONFIG file with the [security] section naming them.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <set>

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

constexpr long kCaDays = 3650;

struct App {
    std::string name;
    std::vector<Grant> grants;
};

// "NAME:M_X=side,M_Y=side"
App parseApp(const std::string& text) {
    const auto colon = text.find(':');
    if (colon == std::string::npos || colon + 1 == text.size())
        throw InputError("--app '" + text + "': give NAME:MODULE=service|client[,MODULE=service|client...]");
    App app{text.substr(0, colon), {}};
    requireIdentityName(app.name);
    if (app.name == "ca") throw InputError("--app '" + text + "': 'ca' names the CA's own files (ca.pem, ca.key)");
    std::string grants = text.substr(colon + 1);
    for (std::size_t start = 0; start <= grants.size();) {
        const auto comma = std::min(grants.find(',', start), grants.size());
        app.grants.push_back(parseGrant(grants.substr(start, comma - start), "--app '" + text + "'"));
        start = comma + 1;
    }
    return app;
}

std::string tomlOf(const App& app, const std::string& note) {
    return "# " + note + "\n"
           "# Paths are relative to this file's directory. KELVA_CONFIG=<this file> secures the sessions.\n"
           "[security]\n"
           "identity_ca = \"ca.pem\"\n"
           "identity_certificate = \"" + app.name + ".pem\"\n"
           "private_key = \"" + app.name + ".key\"\n"
           "permissions_ca = \"ca.pem\"\n"
           "governance = \"governance.p7s\"\n"
           "permissions = \"" + app.name + ".permissions.p7s\"\n";
}

ks::Authority authorityIn(const std::string& dir, const ks::Validity& period) {
    const bool hasCert = std::filesystem::exists(caCertificatePath(dir));
    const bool hasKey = std::filesystem::exists(caKeyPath(dir));
    if (hasCert && hasKey) {
        std::cout << "CA: " << caCertificatePath(dir) << " (kept)\n";
        return loadAuthority(dir);
    }
    if (hasCert != hasKey)
        throw InputError((hasCert ? caKeyPath(dir) : caCertificatePath(dir)) + ": missing beside " +
                         (hasCert ? caCertificatePath(dir) : caKeyPath(dir)));
    // The CA outlives what it signs and covers the start of a validity given in the past.
    const std::time_t now = std::time(nullptr);
    const ks::Validity caPeriod{std::min(now, period.notBefore), std::max(period.notAfter, now + kCaDays * 86400)};
    ks::Authority ca = ks::Authority::make("vantrel CA", caPeriod);
    writeFile(caKeyPath(dir), ca.key.pem(), false, true);
    writeFile(caCertificatePath(dir), ca.certificate.pem(), false);
    std::cout << "CA: " << caCertificatePath(dir) << " (new)\n";
    return ca;
}

}  // namespace

int securitySetup(const SecuritySetupOptions& o) {
    if (o.apps.empty()) throw InputError("give at least one --app NAME:MODULE=service|client[,...]");
    std::vector<App> apps;
    std::set<std::string> names;
    for (const auto& text : o.apps) {
        apps.push_back(parseApp(text));
        if (!names.insert(apps.back().name).second) throw InputError("--app '" + text + "': the name is given twice");
    }
    const auto domains = parseDomains(o.domains);
    const ks::Validity period = periodOf(o.validity);
    requireProtectionKind(o.rtpsProtection);
    const std::string governance = ks::governanceXml(domains, o.rtpsProtection);
    const auto config = kelva::config::Config::fromEnvironment();

    makeDirectory(o.directory);
    const std::string dir = o.directory;
    const ks::Authority ca = authorityIn(dir, period);
    writeFile(dir + "/governance.p7s", ks::signDocument(governance, ca), true);
    std::cout << "governance: " << dir << "/governance.p7s\n";

    for (const auto& app : apps) {
        std::string note = app.name;
        for (const auto& g : app.grants) note += " " + grantText(g);
        const ks::PrivateKey key = ks::PrivateKey::generate();
        const ks::Certificate cert = ks::makeIdentityCertificate(key, app.name, ca, period);
        TopicAccess topics = topicAccess(app.grants, config);
        const std::size_t published = topics.publish.size(), subscribed = topics.subscribe.size();
        const std::string permissions = ks::permissionsXml(
            {cert.subject(), period, domains, std::move(topics.publish), std::move(topics.subscribe)}, note);
        writeFile(dir + "/" + app.name + ".key", key.pem(), true, true);
        writeFile(dir + "/" + app.name + ".pem", cert.pem(), true);
        writeFile(dir + "/" + app.name + ".permissions.p7s", ks::signDocument(permissions, ca), true);
        writeFile(dir + "/" + app.name + ".toml", tomlOf(app, "vantrel security setup: " + note), true);
        std::cout << app.name << ": " << dir << "/" << app.name << ".toml (" << published << " topics to publish, "
                  << subscribed << " to subscribe)\n";
    }
    return 0;
}

}  // namespace vantrel::tool
