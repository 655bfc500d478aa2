#include <cstdlib>

#include "Documents.h"
#include "vantrel/tool/Errors.h"

namespace vantrel::tool::security {

namespace {

// The highest domain id the DDS layer accepts (its access control refuses a document naming a higher one).
constexpr long kLastDomain = 230;

long parseId(const std::string& text, const std::string& whole) {
    char* end = nullptr;
    const long id = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || text.front() == '-' || text.front() == '+' || id < 0 || id > kLastDomain)
        throw InputError("--domain '" + whole + "': give a domain id N or a range A-B of ids from 0 to " +
                         std::to_string(kLastDomain));
    return id;
}

}  // namespace

std::vector<DomainRange> parseDomains(const std::vector<std::string>& texts) {
    if (texts.empty()) return {{0, kLastDomain}};
    std::vector<DomainRange> out;
    for (const auto& text : texts) {
        const auto dash = text.find('-', 1);
        DomainRange range{};
        if (dash == std::string::npos) {
            range.min = range.max = parseId(text, text);
        } else {
            range.min = parseId(text.substr(0, dash), text);
            range.max = parseId(text.substr(dash + 1), text);
            if (range.max < range.min) throw InputError("--domain '" + text + "': the range ends before it starts");
        }
        out.push_back(range);
    }
    return out;
}

}  // namespace vantrel::tool::security
