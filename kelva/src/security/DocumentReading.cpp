// What the checks read of the governance and permissions documents, with the XML library's parser.
#include <tinyxml2.h>

#include <algorithm>
#include <cctype>

#include "kelva/config/Config.h"
#include "kelva/security/Documents.h"

namespace kelva::security {
namespace {

using config::ConfigError;
using tinyxml2::XMLDocument;
using tinyxml2::XMLElement;

std::string trimmed(const char* text) {
    std::string s = text ? text : "";
    const auto space = [](unsigned char c) { return std::isspace(c) != 0; };
    s.erase(s.begin(), std::find_if_not(s.begin(), s.end(), space));
    s.erase(std::find_if_not(s.rbegin(), s.rend(), space).base(), s.end());
    return s;
}

void parse(XMLDocument& document, const std::string& xml, const std::string& origin) {
    if (document.Parse(xml.data(), xml.size()) != tinyxml2::XML_SUCCESS)
        throw ConfigError(origin + ": not XML (" + document.ErrorName() + " at line " +
                          std::to_string(document.ErrorLineNum()) + " of the signed document)");
}

// Digits at text[at..at+count), as a number; -1 when any is not a digit.
int digits(const std::string& text, std::size_t at, std::size_t count) {
    if (at + count > text.size()) return -1;
    int value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return -1;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

// An XML date and time: YYYY-MM-DDThh:mm:ss, optional fractions of a second (ignored), then Z, an offset
// +hh:mm / -hh:mm, or nothing (UTC).
bool parseDateTime(const std::string& t, std::time_t& out) {
    if (t.size() < 19 || t[4] != '-' || t[7] != '-' || t[10] != 'T' || t[13] != ':' || t[16] != ':') return false;
    std::tm tm{};
    tm.tm_year = digits(t, 0, 4) - 1900;
    tm.tm_mon = digits(t, 5, 2) - 1;
    tm.tm_mday = digits(t, 8, 2);
    tm.tm_hour = digits(t, 11, 2);
    tm.tm_min = digits(t, 14, 2);
    tm.tm_sec = digits(t, 17, 2);
    const std::tm given = tm;
    std::size_t at = 19;
    if (at < t.size() && t[at] == '.') {
        const std::size_t first = ++at;
        while (at < t.size() && std::isdigit(static_cast<unsigned char>(t[at]))) ++at;
        if (at == first) return false;
    }
    long offset = 0;
    if (at + 1 == t.size() && t[at] == 'Z') {
        at = t.size();
    } else if (at + 6 == t.size() && (t[at] == '+' || t[at] == '-') && t[at + 3] == ':') {
        const int hours = digits(t, at + 1, 2), minutes = digits(t, at + 4, 2);
        if (hours < 0 || hours > 14 || minutes < 0 || minutes > 59) return false;
        offset = (t[at] == '+' ? 1 : -1) * (hours * 3600L + minutes * 60L);
        at = t.size();
    }
    if (at != t.size()) return false;
    const std::time_t utc = timegm(&tm);
    // timegm normalises out-of-range fields (February 30th, hour 25): such a time was not a real one.
    if (tm.tm_year != given.tm_year || tm.tm_mon != given.tm_mon || tm.tm_mday != given.tm_mday ||
        tm.tm_hour != given.tm_hour || tm.tm_min != given.tm_min || tm.tm_sec != given.tm_sec)
        return false;
    out = utc - offset;
    return true;
}

std::time_t timeIn(const XMLElement* validity, const char* name, const std::string& where) {
    const XMLElement* element = validity ? validity->FirstChildElement(name) : nullptr;
    if (!element) throw ConfigError(where + " has no <validity><" + name + ">");
    const std::string text = trimmed(element->GetText());
    std::time_t t = 0;
    if (!parseDateTime(text, t))
        throw ConfigError(where + ": <" + name + "> '" + text + "' is not a date and time (YYYY-MM-DDThh:mm:ss)");
    return t;
}

// "CN=a,O=b" as its sorted attributes; a backslash escapes the next character (an escaped comma is no
// separator). The DDS layer compares names so: in any order, each attribute exactly as written.
std::vector<std::string> attributesOf(const std::string& name) {
    std::vector<std::string> out(1);
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '\\' && i + 1 < name.size())
            out.back() += name.substr(i++, 2);
        else if (name[i] == ',')
            out.emplace_back();
        else
            out.back() += name[i];
    }
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

bool sameSubject(const std::string& a, const std::string& b) { return attributesOf(a) == attributesOf(b); }

std::vector<GrantTerms> readGrants(const std::string& xml, const std::string& origin) {
    XMLDocument document;
    parse(document, xml, origin);
    const XMLElement* dds = document.FirstChildElement("dds");
    const XMLElement* permissions = dds ? dds->FirstChildElement("permissions") : nullptr;
    const XMLElement* grant = permissions ? permissions->FirstChildElement("grant") : nullptr;
    if (!grant) throw ConfigError(origin + ": not a permissions document (no <dds><permissions><grant>)");
    std::vector<GrantTerms> grants;
    for (; grant; grant = grant->NextSiblingElement("grant")) {
        const char* name = grant->Attribute("name");
        const std::string where = origin + ": grant '" + (name ? name : "") + "'";
        const XMLElement* subject = grant->FirstChildElement("subject_name");
        if (!subject || trimmed(subject->GetText()).empty()) throw ConfigError(where + " has no <subject_name>");
        const XMLElement* validity = grant->FirstChildElement("validity");
        grants.push_back({trimmed(subject->GetText()),
                          {timeIn(validity, "not_before", where), timeIn(validity, "not_after", where)}});
    }
    return grants;
}

void readGovernance(const std::string& xml, const std::string& origin) {
    XMLDocument document;
    parse(document, xml, origin);
    const XMLElement* dds = document.FirstChildElement("dds");
    if (!dds || !dds->FirstChildElement("domain_access_rules"))
        throw ConfigError(origin + ": not a governance document (no <dds><domain_access_rules>)");
}

}  // namespace kelva::security
