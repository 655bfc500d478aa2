// vantrel security setup: a CA (kept when DIR has one), the governance, and per application its identity,
// permissions and a KELVA_CONFIG file with the [security] section naming them.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <set>

#include "Documents.h"
#include "Signing.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Security.h"

namespace vantrel::tool {

using namespace security;

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

Authority authorityIn(const std::string& dir, const Period& period) {
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
    const Period caPeriod{std::min(now, period.notBefore), std::max(period.notAfter, now + kCaDays * 86400)};
    KeyPtr key = generateKey();
    CertPtr cert = makeCaCertificate(key.get(), "vantrel CA", caPeriod);
    writeFile(caKeyPath(dir), keyPem(key.get()), false, true);
    writeFile(caCertificatePath(dir), certificatePem(cert.get()), false);
    std::cout << "CA: " << caCertificatePath(dir) << " (new)\n";
    return Authority{std::move(cert), std::move(key), caCertificatePath(dir)};
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
    const Period period = periodOf(o.validity);
    const std::string governance = governanceXml(domains, o.rtpsProtection);
    const auto config = kelva::config::Config::fromEnvironment();

    makeDirectory(o.directory);
    const std::string dir = o.directory;
    const Authority ca = authorityIn(dir, period);
    writeFile(dir + "/governance.p7s", signDocument(governance, ca), true);
    std::cout << "governance: " << dir << "/governance.p7s\n";

    for (const auto& app : apps) {
        std::string note = app.name;
        for (const auto& g : app.grants) note += " " + grantText(g);
        KeyPtr key = generateKey();
        CertPtr cert = makeIdentityCertificate(key.get(), app.name, ca, period);
        const TopicAccess topics = topicAccess(app.grants, config);
        const std::string permissions = permissionsXml(subjectName(cert.get()), period, domains, topics, note);
        writeFile(dir + "/" + app.name + ".key", keyPem(key.get()), true, true);
        writeFile(dir + "/" + app.name + ".pem", certificatePem(cert.get()), true);
        writeFile(dir + "/" + app.name + ".permissions.p7s", signDocument(permissions, ca), true);
        writeFile(dir + "/" + app.name + ".toml", tomlOf(app, "vantrel security setup: " + note), true);
        std::cout << app.name << ": " << dir << "/" << app.name << ".toml (" << topics.publish.size()
                  << " topics to publish, " << topics.subscribe.size() << " to subscribe)\n";
    }
    return 0;
}

}  // namespace vantrel::tool
