#include "kelva/access/TopicStrategyMapChars.h"

#include <cctype>

#include "kelva/utils/System.h"

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

std::string topicNameOf(const std::string& className, const std::string& prefix) {
    std::string name = className;
    utils::string::removePrefixIf(name, prefix);
    return TopicStrategyMapChars().get(name);
}

}  // namespace kelva::access
