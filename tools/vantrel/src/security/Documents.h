#pragma once
// The text of the governance and permissions documents (XML, before signing).
#include <set>
#include <string>
#include <vector>

#include "Certificates.h"
#include "kelva/config/Config.h"
#include "vantrel/catalog/Catalog.h"

namespace vantrel::tool::security {

struct DomainRange {
    long min;
    long max;
};
// "N" or "A-B" each; none: 0-230, every domain the DDS layer accepts.
std::vector<DomainRange> parseDomains(const std::vector<std::string>& texts);

// NONE, SIGN or ENCRYPT (InputError otherwise).
void requireProtectionKind(const std::string& kind);
std::string governanceXml(const std::vector<DomainRange>& domains, const std::string& rtpsProtection);

// One side of one module: "M_Mount=service". Errors name `origin` (default: the --grant option).
struct Grant {
    const catalog::ModuleInfo* module;
    catalog::Role side;
};
Grant parseGrant(const std::string& text, const std::string& origin = "");
std::string grantText(const Grant& grant);

struct TopicAccess {
    std::set<std::string> publish;
    std::set<std::string> subscribe;
};
// The topics the grants need, by the toolkit's topic names under `config`, and the toolkit's own.
TopicAccess topicAccess(const std::vector<Grant>& grants, const kelva::config::Config& config);

std::string permissionsXml(const std::string& subject, const Period& validity, const std::vector<DomainRange>& domains,
                           const TopicAccess& topics, const std::string& note);

// The toolkit's own topics, which every session publishes and reads (kelva/src/actors).
const std::vector<std::string>& toolkitTopics();

}  // namespace vantrel::tool::security
