// The participant QoS of a [security] section: the DDS layer's three security plug-ins and the section's
// files, once the files pass the check.
#include <string>

#include "kelva/config/Participant.h"
#include "kelva/security/Check.h"

#ifndef KELVA_DDS_SECURITY_PLUGIN_DIR
#error "KELVA_DDS_SECURITY_PLUGIN_DIR: the folder of the DDS layer's security plug-ins (set by the build)"
#endif

namespace kelva::config {

dds_qos_t* securityQos(const Security& s) {
    kelva::security::checkFiles(s);
    dds_qos_t* qos = dds_create_qos();
    const std::string dir = KELVA_DDS_SECURITY_PLUGIN_DIR;
    // The three standard plug-ins of the DDS layer, by path: they are not on the loader's search path.
    const struct {
        const char* prefix;
        const char* library;
        const char* name;
    } plugins[] = {{"dds.sec.auth", "libdds_security_auth.so", "authentication"},
                   {"dds.sec.access", "libdds_security_ac.so", "access_control"},
                   {"dds.sec.crypto", "libdds_security_crypto.so", "crypto"}};
    for (const auto& p : plugins) {
        dds_qset_prop(qos, (std::string(p.prefix) + ".library.path").c_str(), (dir + "/" + p.library).c_str());
        dds_qset_prop(qos, (std::string(p.prefix) + ".library.init").c_str(), (std::string("init_") + p.name).c_str());
        dds_qset_prop(qos, (std::string(p.prefix) + ".library.finalize").c_str(), (std::string("finalize_") + p.name).c_str());
    }
    auto file = [&](const char* property, const std::string& path) { dds_qset_prop(qos, property, ("file:" + path).c_str()); };
    file("dds.sec.auth.identity_ca", s.identityCa);
    file("dds.sec.auth.identity_certificate", s.identityCertificate);
    file("dds.sec.auth.private_key", s.privateKey);
    file("dds.sec.access.permissions_ca", s.permissionsCa);
    file("dds.sec.access.governance", s.governance);
    file("dds.sec.access.permissions", s.permissions);
    return qos;
}

}  // namespace kelva::config
