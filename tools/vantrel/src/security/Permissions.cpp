#include <sstream>

#include "Documents.h"
#include "XmlText.h"
#include "vantrel/tool/Describe.h"
#include "vantrel/tool/Errors.h"

namespace vantrel::tool::security {

const std::vector<std::string>& toolkitTopics() {
    // Process and session descriptions (SessionImpl) and actor descriptions (ActorInfoChannel): every
    // session writes its own and reads the others'.
    static const std::vector<std::string> topics = {"kelva_intern_Process", "kelva_intern_Session",
                                                    "kelva_intern_ActorInfo"};
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

namespace {

// The topics, in any partition: the grant is about topics (the toolkit uses the default partition; the tool
// matches a local reader and writer in a partition of its own to learn a topic's serialization type).
std::string topicsXml(const std::set<std::string>& topics) {
    std::string x = "          <topics>\n";
    for (const auto& t : topics) x += "            <topic>" + xmlEscaped(t) + "</topic>\n";
    return x + "          </topics>\n"
               "          <partitions><partition>*</partition></partitions>\n";
}

}  // namespace

std::string permissionsXml(const std::string& subject, const Period& validity, const std::vector<DomainRange>& domains,
                           const TopicAccess& topics, const std::string& note) {
    std::string comment = xmlEscaped(note);
    for (auto at = comment.find("--"); at != std::string::npos; at = comment.find("--", at))
        comment.replace(at, 2, "- -");  // "--" would end an XML comment early
    std::ostringstream x;
    x << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      << "<!-- vantrel security permissions: " << comment << " -->\n"
      << "<dds>\n"
      << "  <permissions>\n"
      << "    <grant name=\"" << xmlEscaped(subject) << "\">\n"
      << "      <subject_name>" << xmlEscaped(subject) << "</subject_name>\n"
      << "      <validity>\n"
      << "        <not_before>" << isoTime(validity.notBefore) << "</not_before>\n"
      << "        <not_after>" << isoTime(validity.notAfter) << "</not_after>\n"
      << "      </validity>\n"
      << "      <allow_rule>\n"
      << domainsXml(domains, "        ")
      << "        <publish>\n" << topicsXml(topics.publish) << "        </publish>\n"
      << "        <subscribe>\n" << topicsXml(topics.subscribe) << "        </subscribe>\n"
      << "      </allow_rule>\n"
      << "      <default>DENY</default>\n"
      << "    </grant>\n"
      << "  </permissions>\n"
      << "</dds>\n";
    return x.str();
}

}  // namespace vantrel::tool::security
