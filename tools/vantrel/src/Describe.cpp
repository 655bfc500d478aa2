#include "vantrel/tool/Describe.h"

#include <iostream>
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
            throw InputError("no operation matches '" + pattern + "'" + didYouMean(pattern) +
                             " (patterns are globs over M_X.IService.Op; see vantrel list)");
        for (const auto* op : found)
            if (seen.insert(op).second) out.push_back(op);
    }
    return out;
}

const OperationInfo& requireOperation(const std::string& name) {
    if (const auto* op = catalog::findOperation(name)) return *op;
    throw InputError("unknown operation '" + name + "'" + didYouMean(name) +
                     " (give M_X.Op or M_X.IService.Op; see vantrel list)");
}

std::string didYouMean(const std::string& name) {
    const auto near = catalog::nearestNames(name);
    if (near.empty()) return "";
    std::string out = " (did you mean ";
    for (std::size_t i = 0; i < near.size(); ++i) out += (i == 0 ? "" : i + 1 == near.size() ? " or " : ", ") + near[i];
    return out + "?)";
}

void sayWaiting(std::size_t topics, int domain) {
    std::cerr << "waiting for writers on " << topics << (topics == 1 ? " topic" : " topics") << " of domain "
              << domain << std::endl;
}

}  // namespace vantrel::tool
