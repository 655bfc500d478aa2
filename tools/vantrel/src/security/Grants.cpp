#include "Grants.h"

#include "kelva/actors/InternTopics.h"
#include "vantrel/tool/Describe.h"
#include "vantrel/tool/Errors.h"

namespace vantrel::tool::security {

const std::vector<std::string>& toolkitTopics() {
    // Process and session descriptions (SessionImpl) and actor descriptions (ActorInfoChannel): every
    // session writes its own and reads the others'.
    using namespace kelva::actors::intern;
    static const std::vector<std::string> topics = {kProcessTopic, kSessionTopic, kActorInfoTopic};
    return topics;
}

Grant parseGrant(const std::string& text, const std::string& origin) {
    const std::string where = origin.empty() ? "--grant '" + text + "'" : origin;
    const auto equals = text.find('=');
    if (equals == std::string::npos) throw InputError(where + ": give MODULE=service or MODULE=client");
    const std::string moduleName = text.substr(0, equals);
    const std::string side = text.substr(equals + 1);
    const auto* module = catalog::findModule(moduleName);
    if (!module) throw InputError(where + ": unknown module '" + moduleName + "' (see vantrel list)");
    if (module->operationCount == 0)
        throw InputError(where + ": module '" + moduleName + "' has types only, no operations");
    if (side == "service") return {module, catalog::Role::Service};
    if (side == "client") return {module, catalog::Role::Client};
    throw InputError(where + ": unknown side '" + side + "' (give service or client)");
}

std::vector<Grant> parseGrants(const std::vector<std::string>& texts) {
    if (texts.empty()) throw InputError("give at least one --grant MODULE=service|client");
    std::vector<Grant> grants;
    for (const auto& text : texts) grants.push_back(parseGrant(text));
    return grants;
}

std::string grantText(const Grant& grant) {
    return std::string(grant.module->name) + (grant.side == catalog::Role::Service ? "=service" : "=client");
}

TopicAccess topicAccess(const std::vector<Grant>& grants, const kelva::config::Config& config) {
    TopicAccess access;
    for (const auto& topic : toolkitTopics()) {
        access.publish.insert(topic);
        access.subscribe.insert(topic);
    }
    // A side sends its own interface's operations (a service the IClient ones) and receives the other's.
    for (const auto& grant : grants) {
        for (uint32_t i = 0; i < grant.module->operationCount; ++i) {
            const auto& op = grant.module->operations[i];
            (op.sender() == grant.side ? access.publish : access.subscribe).insert(topicNameOf(op, config));
        }
    }
    return access;
}

}  // namespace vantrel::tool::security
