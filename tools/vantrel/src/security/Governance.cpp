#include <sstream>

#include "Documents.h"
#include "XmlText.h"
#include "vantrel/tool/Errors.h"

namespace vantrel::tool::security {

void requireProtectionKind(const std::string& kind) {
    if (kind != "NONE" && kind != "SIGN" && kind != "ENCRYPT")
        throw InputError("--rtps-protection '" + kind + "': give NONE, SIGN or ENCRYPT");
}

std::string governanceXml(const std::vector<DomainRange>& domains, const std::string& rtpsProtection) {
    requireProtectionKind(rtpsProtection);
    std::ostringstream x;
    x << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      << "<!-- vantrel security governance: authenticated, access-controlled and encrypted, every topic -->\n"
      << "<dds>\n"
      << "  <domain_access_rules>\n"
      << "    <domain_rule>\n"
      << domainsXml(domains, "      ")
      << "      <allow_unauthenticated_participants>false</allow_unauthenticated_participants>\n"
      << "      <enable_join_access_control>true</enable_join_access_control>\n"
      << "      <discovery_protection_kind>ENCRYPT</discovery_protection_kind>\n"
      << "      <liveliness_protection_kind>ENCRYPT</liveliness_protection_kind>\n"
      << "      <rtps_protection_kind>" << rtpsProtection << "</rtps_protection_kind>\n"
      << "      <topic_access_rules>\n"
      // One rule for every topic name: the toolkit's own topics and those of modules added later are covered
      // too, and a secured participant cannot create a topic no rule matches.
      << "        <topic_rule>\n"
      << "          <topic_expression>*</topic_expression>\n"
      << "          <enable_discovery_protection>true</enable_discovery_protection>\n"
      << "          <enable_liveliness_protection>true</enable_liveliness_protection>\n"
      << "          <enable_read_access_control>true</enable_read_access_control>\n"
      << "          <enable_write_access_control>true</enable_write_access_control>\n"
      << "          <metadata_protection_kind>ENCRYPT</metadata_protection_kind>\n"
      << "          <data_protection_kind>ENCRYPT</data_protection_kind>\n"
      << "        </topic_rule>\n"
      << "      </topic_access_rules>\n"
      << "    </domain_rule>\n"
      << "  </domain_access_rules>\n"
      << "</dds>\n";
    return x.str();
}

}  // namespace vantrel::tool::security
