#include "vantrel/catalog/Catalog.h"

#include <algorithm>
#include <cstring>

#include "kelva/utils/System.h"

namespace vantrel::catalog {

Role OperationInfo::sender() const {
    return std::strcmp(interface, "IService") == 0 ? Role::Client : Role::Service;
}

std::string OperationInfo::qualifiedName() const {
    return std::string(module) + "." + interface + "." + name;
}

const ModuleInfo* findModule(const std::string& name) {
    for (const ModuleInfo* m : modules())
        if (name == m->name) return m;
    return nullptr;
}

const OperationInfo* findOperation(const std::string& qualifiedName) {
    const auto first = qualifiedName.find('.');
    if (first == std::string::npos) return nullptr;
    const ModuleInfo* module = findModule(qualifiedName.substr(0, first));
    if (!module) return nullptr;
    const std::string rest = qualifiedName.substr(first + 1);
    const auto second = rest.find('.');
    const std::string interface = second == std::string::npos ? "" : rest.substr(0, second);
    const std::string name = second == std::string::npos ? rest : rest.substr(second + 1);
    for (uint32_t i = 0; i < module->operationCount; ++i) {
        const OperationInfo& op = module->operations[i];
        if (name == op.name && (interface.empty() || interface == op.interface)) return &op;
    }
    return nullptr;
}

const OperationInfo* findOperationByType(const std::string& typeName) {
    for (const ModuleInfo* m : modules())
        for (uint32_t i = 0; i < m->operationCount; ++i)
            if (typeName == m->operations[i].typeName) return &m->operations[i];
    return nullptr;
}

std::vector<const OperationInfo*> matchOperations(const std::string& pattern) {
    const auto dots = std::count(pattern.begin(), pattern.end(), '.');
    std::vector<const OperationInfo*> out;
    for (const ModuleInfo* m : modules()) {
        if (dots == 0 && !kelva::utils::string::globMatch(pattern, m->name)) continue;
        for (uint32_t i = 0; i < m->operationCount; ++i) {
            const OperationInfo& op = m->operations[i];
            if (dots == 0 || kelva::utils::string::globMatch(pattern, op.qualifiedName()) ||
                (dots == 1 && kelva::utils::string::globMatch(pattern, std::string(m->name) + "." + op.name)))
                out.push_back(&op);
        }
    }
    return out;
}

const char* kindName(Kind kind) {
    switch (kind) {
        case Kind::Bool: return "boolean";
        case Kind::Octet: return "octet";
        case Kind::Int16: return "int16";
        case Kind::UInt16: return "uint16";
        case Kind::Int32: return "int32";
        case Kind::UInt32: return "uint32";
        case Kind::Int64: return "int64";
        case Kind::UInt64: return "uint64";
        case Kind::Float: return "float";
        case Kind::Double: return "double";
        case Kind::String: return "string";
        case Kind::BoundedString: return "string";
        case Kind::Sequence: return "sequence";
        case Kind::Enum: return "enum";
        case Kind::Struct: return "struct";
    }
    return "?";
}

std::string typeText(const TypeInfo& type) {
    switch (type.kind) {
        case Kind::BoundedString: return "string<" + std::to_string(type.bound) + ">";
        case Kind::Sequence:
            return "sequence<" + typeText(*type.element) +
                   (type.bound ? ", " + std::to_string(type.bound) : std::string()) + ">";
        case Kind::Enum: return std::string(type.enumeration->module) + "::" + type.enumeration->name + "::Type";
        case Kind::Struct: return std::string(type.structure->module) + "::" + type.structure->name;
        default: return kindName(type.kind);
    }
}

}  // namespace vantrel::catalog
