#include "vantrel/catalog/Facade.h"

#include <stdexcept>

#include "FacadeGlue.h"

namespace vantrel::catalog {

std::unique_ptr<Facade> createFacade(const ModuleInfo& module, const FacadeRequest& request) {
    if (!module.create) throw std::invalid_argument(std::string(module.name) + " is a module of types only");
    return module.create(request);
}

namespace glue {

void checkMethods(const OperationInfo* operations, std::size_t count, const std::vector<std::string>& methods) {
    for (const std::string& method : methods) {
        bool known = false;
        for (std::size_t i = 0; i < count && !known; ++i) known = method == operations[i].name;
        if (!known) {
            std::string interface = count ? operations[0].interface : "the receiving interface";
            throw std::invalid_argument("no operation " + method + " in " +
                                        (count ? std::string(operations[0].module) + "::" : std::string()) + interface);
        }
    }
}

void wrongOperation(const ModuleInfo& module, Role role, const OperationInfo& operation) {
    throw std::invalid_argument(std::string("a ") + (role == Role::Client ? "Client" : "Service") + " of " +
                                module.name + " cannot send " + operation.qualifiedName());
}

}  // namespace glue
}  // namespace vantrel::catalog
