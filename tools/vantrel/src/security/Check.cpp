// vantrel security check: every file a configuration's [security] section names, as the toolkit checks
// them before a session starts, and whether the permissions are those of the identity and in force.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <regex>

#include "Certificates.h"
#include "Signing.h"
#include "kelva/config/Config.h"
#include "kelva/config/Participant.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Security.h"

namespace vantrel::tool {

using namespace security;

namespace {

std::string firstMatch(const std::string& text, const char* pattern) {
    std::smatch m;
    return std::regex_search(text, m, std::regex(pattern)) ? m[1].str() : std::string();
}

// The part of the check the toolkit leaves to the DDS layer, which refuses the participant without saying
// which file is at fault.
void checkGrant(const kelva::config::Security& s) {
    const CertPtr identity = readCertificate(s.identityCertificate);
    const CertPtr permissionsCa = readCertificate(s.permissionsCa);
    const std::string xml = verifyDocument(s.permissions, permissionsCa.get());
    const std::string subject = firstMatch(xml, "<subject_name>\\s*([^<]*?)\\s*</subject_name>");
    if (subject != subjectName(identity.get()))
        throw InputError(s.permissions + ": grants '" + subject + "', not the identity " +
                         subjectName(identity.get()) + " of " + s.identityCertificate);
    const std::string notBefore = firstMatch(xml, "<not_before>\\s*([0-9T:-]+)");
    if (notBefore > isoTime(std::time(nullptr)))
        throw InputError(s.permissions + ": permissions not valid before " + notBefore + "Z");
}

bool checkOne(const std::string& toml) {
    try {
        const auto config = kelva::config::Config::fromFile(toml);
        if (!config.security.enabled()) throw InputError(toml + ": no [security] section");
        kelva::config::checkSecurityFiles(config.security);
        checkGrant(config.security);
        const CertPtr identity = readCertificate(config.security.identityCertificate);
        std::cout << toml << ": ok (" << subjectName(identity.get()) << ")\n";
        return true;
    } catch (const InputError& e) {
        std::cout << "FAILED " << e.what() << "\n";
    } catch (const kelva::config::ConfigError& e) {
        std::cout << "FAILED " << e.what() << "\n";
    }
    return false;
}

}  // namespace

int securityCheck(const SecurityCheckOptions& o) {
    std::vector<std::string> files;
    std::error_code error;
    if (std::filesystem::is_directory(o.path, error)) {
        for (const auto& entry : std::filesystem::directory_iterator(o.path, error))
            if (entry.path().extension() == ".toml") files.push_back(entry.path().string());
        std::sort(files.begin(), files.end());
        if (files.empty()) throw InputError(o.path + ": no .toml file in the directory");
    } else if (std::filesystem::exists(o.path, error)) {
        files.push_back(o.path);
    } else {
        throw InputError(o.path + ": no such file or directory");
    }
    bool ok = true;
    for (const auto& file : files) ok = checkOne(file) && ok;
    return ok ? 0 : 2;
}

}  // namespace vantrel::tool
