#include "Options.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "vantrel/tool/Errors.h"

namespace vantrel::tool::security {

namespace {

constexpr long kMaxDays = 36500;
// The highest domain id the DDS layer accepts (its access control refuses a document naming a higher one).
constexpr long kLastDomain = 230;

std::time_t parseUtc(const std::string& text) {
    std::tm tm{};
    int consumed = 0;
    const bool dateOnly = std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &consumed) == 3 &&
                          static_cast<std::size_t>(consumed) == text.size();
    const bool dateTime =
        !dateOnly && std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                                 &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &consumed) == 6 &&
        (static_cast<std::size_t>(consumed) == text.size() ||
         (static_cast<std::size_t>(consumed) + 1 == text.size() && text.back() == 'Z'));
    if (!dateOnly && !dateTime)
        throw InputError("--not-before '" + text + "': give a UTC time as YYYY-MM-DD or YYYY-MM-DDTHH:MM:SS");
    const std::tm given = tm;
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    const std::time_t t = timegm(&tm);
    // timegm normalises out-of-range fields (February 30th): such a date was not a real one.
    std::tm back{};
    gmtime_r(&t, &back);
    if (t < 0 || back.tm_mon != given.tm_mon - 1 || back.tm_mday != given.tm_mday || back.tm_hour != given.tm_hour || back.tm_min != given.tm_min ||
        back.tm_sec != given.tm_sec)
        throw InputError("--not-before '" + text + "': not a valid UTC time");
    return t;
}

long parseDomainId(const std::string& text, const std::string& whole) {
    char* end = nullptr;
    const long id = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || text.front() == '-' || text.front() == '+' || id < 0 || id > kLastDomain)
        throw InputError("--domain '" + whole + "': give a domain id N or a range A-B of ids from 0 to " +
                         std::to_string(kLastDomain));
    return id;
}

}  // namespace

kelva::security::Validity periodOf(const ValidityOptions& o) {
    if (o.days < 1 || o.days > kMaxDays)
        throw InputError("--days " + std::to_string(o.days) + ": give 1 to " + std::to_string(kMaxDays));
    const std::time_t from = o.notBefore.empty() ? std::time(nullptr) : parseUtc(o.notBefore);
    return {from, from + static_cast<std::time_t>(o.days) * 86400};
}

std::vector<kelva::security::DomainRange> parseDomains(const std::vector<std::string>& texts) {
    if (texts.empty()) return {{0, kLastDomain}};
    std::vector<kelva::security::DomainRange> out;
    for (const auto& text : texts) {
        const auto dash = text.find('-', 1);
        kelva::security::DomainRange range;
        if (dash == std::string::npos) {
            range.min = range.max = parseDomainId(text, text);
        } else {
            range.min = parseDomainId(text.substr(0, dash), text);
            range.max = parseDomainId(text.substr(dash + 1), text);
            if (range.max < range.min) throw InputError("--domain '" + text + "': the range ends before it starts");
        }
        out.push_back(range);
    }
    return out;
}

void requireProtectionKind(const std::string& kind) {
    if (kind != "NONE" && kind != "SIGN" && kind != "ENCRYPT")
        throw InputError("--rtps-protection '" + kind + "': give NONE, SIGN or ENCRYPT");
}

void requireIdentityName(const std::string& name) {
    bool ok = !name.empty() && name.front() != '.' && name.size() <= 64;
    for (const char c : name)
        ok = ok && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                    c == '_' || c == '-');
    if (!ok)
        throw InputError("identity name '" + name +
                         "': use 1 to 64 letters, digits, '.', '_' or '-', not starting with '.'");
}

}  // namespace vantrel::tool::security
