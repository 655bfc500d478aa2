// vantrel security check: the files a configuration's [security] section names, checked by the same code a
// session runs before its participant is made.
#include <algorithm>
#include <filesystem>
#include <iostream>

#include "kelva/config/Config.h"
#include "kelva/security/Check.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Security.h"

namespace vantrel::tool {

namespace {

bool checkOne(const std::string& toml) {
    try {
        const auto config = kelva::config::Config::fromFile(toml);
        if (!config.security.enabled()) throw InputError(toml + ": no [security] section");
        const std::string subject = kelva::security::checkFiles(config.security);
        std::cout << toml << ": ok (" << subject << ")\n";
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
