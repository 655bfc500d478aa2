#include "kelva/access/TopicStrategyMapChars.h"

#include <cctype>

namespace kelva::access {

std::string TopicStrategyMapChars::get(const std::string& className) const {
    std::string out;
    out.reserve(className.size());
    for (std::size_t i = 0; i < className.size(); ++i) {
        const char c = className[i];
        if (c == ':' && i + 1 < className.size() && className[i + 1] == ':') {
            out += '_';
            ++i;
        } else if (std::isalnum(static_cast<unsigned char>(c)) || c == '_') {
            out += c;
        } else {
            out += '_';
        }
    }
    return out;
}

}  // namespace kelva::access
