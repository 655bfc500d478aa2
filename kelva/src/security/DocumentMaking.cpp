// The governance and permissions documents, written with the XML library (which escapes what it writes).
#include <tinyxml2.h>

#include <stdexcept>

#include "kelva/security/Documents.h"

namespace kelva::security {
namespace {

using tinyxml2::XMLPrinter;

void text(XMLPrinter& x, const char* element, const std::string& value) {
    x.OpenElement(element);
    x.PushText(value.c_str());
    x.CloseElement();
}

void domains(XMLPrinter& x, const std::vector<DomainRange>& ranges) {
    x.OpenElement("domains");
    for (const auto& range : ranges) {
        if (range.min == range.max) {
            text(x, "id", std::to_string(range.min));
            continue;
        }
        x.OpenElement("id_range");
        text(x, "min", std::to_string(range.min));
        text(x, "max", std::to_string(range.max));
        x.CloseElement();
    }
    x.CloseElement();
}

void comment(XMLPrinter& x, std::string note) {
    for (auto at = note.find("--"); at != std::string::npos; at = note.find("--", at))
        note.replace(at, 2, "- -");  // "--" would end an XML comment early
    x.PushComment((" " + note + " ").c_str());
}

// The topics, in any partition: the grant is about topics (the toolkit uses the default partition; the tool
// matches a local reader and writer in a partition of its own to learn a topic's serialization type).
void topics(XMLPrinter& x, const char* direction, const std::set<std::string>& names) {
    x.OpenElement(direction);
    x.OpenElement("topics");
    for (const auto& name : names) text(x, "topic", name);
    x.CloseElement();
    x.OpenElement("partitions");
    text(x, "partition", "*");
    x.CloseElement();
    x.CloseElement();
}

}  // namespace

std::string governanceXml(const std::vector<DomainRange>& ranges, const std::string& rtpsProtection) {
    if (rtpsProtection != "NONE" && rtpsProtection != "SIGN" && rtpsProtection != "ENCRYPT")
        throw std::invalid_argument("rtps protection '" + rtpsProtection + "': give NONE, SIGN or ENCRYPT");
    XMLPrinter x;
    x.PushHeader(false, true);
    comment(x, "governance: authenticated, access-controlled and encrypted, every topic");
    x.OpenElement("dds");
    x.OpenElement("domain_access_rules");
    x.OpenElement("domain_rule");
    domains(x, ranges);
    text(x, "allow_unauthenticated_participants", "false");
    text(x, "enable_join_access_control", "true");
    text(x, "discovery_protection_kind", "ENCRYPT");
    text(x, "liveliness_protection_kind", "ENCRYPT");
    text(x, "rtps_protection_kind", rtpsProtection);
    x.OpenElement("topic_access_rules");
    // One rule for every topic name: the toolkit's own topics and those of modules added later are covered
    // too, and a secured participant cannot create a topic no rule matches.
    x.OpenElement("topic_rule");
    text(x, "topic_expression", "*");
    text(x, "enable_discovery_protection", "true");
    text(x, "enable_liveliness_protection", "true");
    text(x, "enable_read_access_control", "true");
    text(x, "enable_write_access_control", "true");
    text(x, "metadata_protection_kind", "ENCRYPT");
    text(x, "data_protection_kind", "ENCRYPT");
    x.CloseElement();
    x.CloseElement();
    x.CloseElement();
    x.CloseElement();
    x.CloseElement();
    return x.CStr();
}

std::string permissionsXml(const PermissionsGrant& grant, const std::string& note) {
    XMLPrinter x;
    x.PushHeader(false, true);
    comment(x, "permissions: " + note);
    x.OpenElement("dds");
    x.OpenElement("permissions");
    x.OpenElement("grant");
    x.PushAttribute("name", grant.subject.c_str());
    text(x, "subject_name", grant.subject);
    x.OpenElement("validity");
    text(x, "not_before", isoTime(grant.validity.notBefore));
    text(x, "not_after", isoTime(grant.validity.notAfter));
    x.CloseElement();
    x.OpenElement("allow_rule");
    domains(x, grant.domains);
    topics(x, "publish", grant.publish);
    topics(x, "subscribe", grant.subscribe);
    x.CloseElement();
    text(x, "default", "DENY");
    x.CloseElement();
    x.CloseElement();
    x.CloseElement();
    return x.CStr();
}

}  // namespace kelva::security
