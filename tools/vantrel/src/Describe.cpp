#include "vantrel/tool/Describe.h"

#include <set>

#include "kelva/access/TopicStrategyMapChars.h"
#include "vantrel/tool/Errors.h"

namespace vantrel::tool {

using catalog::OperationInfo;

std::string topicNameOf(const OperationInfo& op, const kelva::config::Config& config) {
    return kelva::access::topicNameOf(op.typeName, config.topicPrefix);
}

std::string qosText(const kelva::config::QosRule& rule) {
    std::string out = rule.reliability == kelva::config::Reliability::Reliable ? "reliable" : "best-effort";
    out += rule.durability == kelva::config::Durability::TransientLocal ? ", transient-local" : ", volatile";
    out += rule.historyDepth > 0 ? ", keep last " + std::to_string(rule.historyDepth) : ", keep all";
    return out;
}

std::string keysText(const OperationInfo& op) {
    std::string out;
    for (uint32_t i = 0; i < op.message->count; ++i)
        if (op.message->members[i].key) out += (out.empty() ? "" : ", ") + std::string(op.message->members[i].name);
    return out.empty() ? "none" : out;
}

std::vector<const OperationInfo*> selectOperations(const std::vector<std::string>& patterns) {
    if (patterns.empty()) return catalog::matchOperations("*");
    std::vector<const OperationInfo*> out;
    std::set<const OperationInfo*> seen;
    for (const auto& pattern : patterns) {
        auto found = catalog::matchOperations(pattern);
        if (found.empty())
            throw InputError("no operation matches '" + pattern + "' (patterns are globs over M_X.IService.Op; "
                             "see vantrel list)");
        for (const auto* op : found)
            if (seen.insert(op).second) out.push_back(op);
    }
    return out;
}

const OperationInfo& requireOperation(const std::string& name) {
    if (const auto* op = catalog::findOperation(name)) return *op;
    throw InputError("unknown operation '" + name + "' (give M_X.Op or M_X.IService.Op; see vantrel list)");
}

}  // namespace vantrel::tool
