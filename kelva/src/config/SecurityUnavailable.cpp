// A build on a DDS layer without security (the Windows build): a configuration that asks for it is refused
// before any participant is made, rather than run unsecured.
#include "kelva/config/Participant.h"

namespace kelva::config {

namespace {
[[noreturn]] void refuse(const Security& security) {
    throw ConfigError(security.identityCertificate +
                      ": [security] is not available: this build's DDS layer has no DDS security");
}
}  // namespace

dds_qos_t* securityQos(const Security& security) { refuse(security); }

}  // namespace kelva::config
