#pragma once
// Maps a class name to a name DDS accepts as a topic name: every "::" becomes "_", and any other character
// outside [A-Za-z0-9_] becomes "_". Both sides of a contract use this one mapping.
#include <string>

#include "kelva/Export.h"

namespace kelva::access {

class KELVA_EXPORT TopicStrategyMapChars {
public:
    std::string get(const std::string& className) const;
};

// The topic name of a wire type: its class name without `prefix` (when it starts with it), mapped as above.
// Sessions name their topics with it and tools find them with it.
KELVA_EXPORT std::string topicNameOf(const std::string& className, const std::string& prefix);

}  // namespace kelva::access
