#pragma once
// What a permissions document grants, from the module catalogue: one side of a module at a time.
#include <set>
#include <string>
#include <vector>

#include "kelva/config/Config.h"
#include "vantrel/catalog/Catalog.h"

namespace vantrel::tool::security {

// One side of one module: "M_Mount=service". Errors name `origin` (default: the --grant option).
struct Grant {
    const catalog::ModuleInfo* module;
    catalog::Role side;
};
Grant parseGrant(const std::string& text, const std::string& origin = "");
std::vector<Grant> parseGrants(const std::vector<std::string>& texts);
std::string grantText(const Grant& grant);

struct TopicAccess {
    std::set<std::string> publish;
    std::set<std::string> subscribe;
};
// The topics the grants need, by the toolkit's topic names under `config`, and the toolkit's own.
TopicAccess topicAccess(const std::vector<Grant>& grants, const kelva::config::Config& config);

// The toolkit's own topics, which every session publishes and reads (kelva/src/actors).
const std::vector<std::string>& toolkitTopics();

}  // namespace vantrel::tool::security
