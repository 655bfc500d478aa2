// vantrel list / vantrel show: the contract as the library knows it, no bus needed.
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "kelva/utils/System.h"
#include "vantrel/tool/Describe.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

using catalog::Kind;
using catalog::OperationInfo;
using catalog::TypeInfo;

namespace {

void showMembers(const catalog::StructInfo& type, int indent) {
    for (uint32_t i = 0; i < type.count; ++i) {
        const auto& m = type.members[i];
        const TypeInfo* t = &m.type;
        std::cout << std::string(indent, ' ') << m.name << ": " << catalog::typeText(*t);
        if (t->alias) std::cout << " (" << t->alias << ")";
        if (m.key) std::cout << " [key]";
        while (t->kind == Kind::Sequence) t = t->element;
        if (t->kind == Kind::Enum) {
            std::cout << " {";
            for (uint32_t l = 0; l < t->enumeration->count; ++l)
                std::cout << (l ? ", " : "") << t->enumeration->literals[l] << " = " << l;
            std::cout << "}";
        }
        std::cout << "\n";
        if (t->kind == Kind::Struct) showMembers(*t->structure, indent + 2);
    }
}

void showOperation(const OperationInfo& op, const kelva::config::Config& config, bool schema) {
    const auto* module = catalog::findModule(op.module);
    const std::string topic = topicNameOf(op, config);
    std::cout << op.qualifiedName() << "\n"
              << "  api        " << op.signature << "\n"
              << "  sent by    " << (op.sender() == catalog::Role::Client ? "Client" : "Service") << "\n"
              << "  wire type  " << op.typeName << "\n"
              << "  topic      " << topic << " (" << qosText(config.qosFor(topic)) << ")\n"
              << "  keys       " << keysText(op) << "\n"
              << "  dispose    " << (op.dispose ? "yes (trailing bool dispose)" : "no") << "\n"
              << "  interface  " << module->version << "\n"
              << "  members\n";
    showMembers(*op.message, 4);
    if (schema) std::cout << "  schema\n" << op.schema;
}

}  // namespace

int list(const ListOptions& o) {
    const auto config = kelva::config::Config::fromEnvironment();
    const auto ops = selectOperations(o.pattern.empty() ? std::vector<std::string>{} : std::vector{o.pattern});
    if (o.json) {
        for (const auto* op : ops) {
            const std::string topic = topicNameOf(*op, config);
            nlohmann::json line = {{"operation", op->qualifiedName()}, {"module", op->module},
                                   {"interface", op->interface}, {"name", op->name}, {"topic", topic},
                                   {"type", op->typeName}, {"keys", keysText(*op)}, {"dispose", op->dispose},
                                   {"qos", qosText(config.qosFor(topic))},
                                   {"version", catalog::findModule(op->module)->version}};
            std::cout << line.dump() << "\n";
        }
        return 0;
    }
    const char* module = nullptr;
    for (const auto* op : ops) {
        if (!module || std::string(module) != op->module) {
            module = op->module;
            std::cout << module << " (interface " << catalog::findModule(module)->version << ")\n";
        }
        const std::string topic = topicNameOf(*op, config);
        std::cout << "  " << std::left << std::setw(48) << (std::string(op->interface) + "." + op->name) << " "
                  << std::setw(52) << topic << " keys: " << keysText(*op) << (op->dispose ? "; dispose" : "")
                  << "; " << qosText(config.qosFor(topic)) << "\n";
    }
    return 0;
}

namespace {

bool isGlob(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }

void showModule(const catalog::ModuleInfo& module) {
    std::cout << module.name << " (interface " << module.version << "): " << module.operationCount
              << " operations, " << module.structCount << " value types, " << module.enumCount << " enumerations\n";
    for (uint32_t i = 0; i < module.operationCount; ++i) {
        const auto& op = module.operations[i];
        std::cout << "  " << op.interface << "  " << op.signature << "\n";
    }
}

}  // namespace

int show(const ShowOptions& o) {
    const auto config = kelva::config::Config::fromEnvironment();
    if (o.what.find('.') == std::string::npos) {
        if (const auto* module = catalog::findModule(o.what)) {
            showModule(*module);
            return 0;
        }
        bool any = false;
        if (isGlob(o.what))
            for (const auto* module : catalog::modules())
                if (kelva::utils::string::globMatch(o.what, module->name)) {
                    showModule(*module);
                    any = true;
                }
        if (!any) throw InputError("unknown module '" + o.what + "'" + didYouMean(o.what) + " (see vantrel list)");
        return 0;
    }
    if (const OperationInfo* exact = catalog::findOperation(o.what)) {
        showOperation(*exact, config, o.schema);
        return 0;
    }
    const auto ops = catalog::matchOperations(o.what);
    if (ops.empty()) throw InputError("unknown operation '" + o.what + "'" + didYouMean(o.what) + " (see vantrel list)");
    for (const auto* op : ops) showOperation(*op, config, o.schema);
    return 0;
}

}  // namespace vantrel::tool
