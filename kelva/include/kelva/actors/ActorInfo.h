#pragma once
#include <string>
#include <vector>

#include "kelva/Export.h"

namespace kelva::actors {

// The description of an actor, as a facade's actorInfo() returns it and as the session publishes it.
struct KELVA_EXPORT ActorInfo {
    std::string actorId;
    std::string sessionId;
    std::string name;
    std::string moduleName;
    int domainId = 0;
    std::vector<std::string> methodsRead;   // operations the observer selected
    std::vector<std::string> methodsWrite;  // operations the sender can send
    std::string interfaceVersion;           // of the module's interface, major.minor.patch
};

// About the operation being dispatched to the application right now (valid only during the call).
struct KELVA_EXPORT CallbackInfo {
    std::string actorId;      // the receiving actor
    std::string moduleName;
    std::string senderId;     // kelva_sending_actor of the received message
    std::string operation;    // for example "CmdAcknowledgeAlarm"
    long long receptionTime = 0;  // Unix seconds, taken when the sample was dispatched
};

}  // namespace kelva::actors
