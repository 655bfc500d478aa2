#include "XmlText.h"

namespace vantrel::tool::security {

std::string xmlEscaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&apos;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string domainsXml(const std::vector<DomainRange>& domains, const std::string& indent) {
    std::string x = indent + "<domains>\n";
    for (const auto& d : domains) {
        if (d.min == d.max)
            x += indent + "  <id>" + std::to_string(d.min) + "</id>\n";
        else
            x += indent + "  <id_range><min>" + std::to_string(d.min) + "</min><max>" + std::to_string(d.max) +
                 "</max></id_range>\n";
    }
    return x + indent + "</domains>\n";
}

}  // namespace vantrel::tool::security
