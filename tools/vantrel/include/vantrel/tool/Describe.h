#pragma once
// Texts about operations shared by the verbs: the QoS a topic gets, the keys of a message, pattern
// matching over the command line's PATTERN arguments.
#include <string>
#include <vector>

#include "kelva/config/Config.h"
#include "vantrel/catalog/Catalog.h"

namespace vantrel::tool {

std::string topicNameOf(const catalog::OperationInfo& op, const kelva::config::Config& config);
// "reliable, transient-local, keep last 1"
std::string qosText(const kelva::config::QosRule& rule);
// "kelva_sending_actor, KeyAlarmId" or "none"
std::string keysText(const catalog::OperationInfo& op);
// The operations the patterns select (none given: every operation); a pattern that selects nothing
// throws InputError.
std::vector<const catalog::OperationInfo*> selectOperations(const std::vector<std::string>& patterns);
// The operation named "M_X.Op" or "M_X.IService.Op"; InputError when there is none.
const catalog::OperationInfo& requireOperation(const std::string& name);
// " (did you mean M_Alert.CmdRaiseAlarm?)" for a name that matched nothing, or "" when nothing is near.
std::string didYouMean(const std::string& name);
// Until the first sample: "waiting for writers on N topics of domain D" on stderr, so that a quiet verb
// is told apart from a hung one.
void sayWaiting(std::size_t topics, int domain);

}  // namespace vantrel::tool
