"""A recording plug-in for one module: it exports every `_ToPlugin` and `_FromPlugin` hook of the module,
records each call, keeps the injectors and can inject an operation with default arguments. It is the
skeleton of a real plug-in and what the tests load. Defining OMIT_<hook name> leaves that hook out."""

from __future__ import annotations

from .cpp_names import api_type, param_type
from .emit_api import HEADER_NOTE
from .model import Module


def emit_test_plugin(mod: Module) -> str:
    M = mod.name
    out = [HEADER_NOTE.format(file=mod.file.split("/")[-1]),
           "#include \"kelva/base/PluginExport.h\"", f"#include \"vantrel/{M}.h\"", "",
           "#include <functional>", "#include <map>", "#include <mutex>", "#include <string>", "#include <vector>", "",
           "namespace {", "",
           "std::mutex g_mutex;",
           "std::vector<std::string> g_records;",
           "std::map<std::string, std::function<void(const std::string&)>> g_injectors;", "",
           "void record(std::string line) {",
           "    std::lock_guard<std::mutex> lock(g_mutex);",
           "    g_records.push_back(std::move(line));",
           "}", "", "}  // namespace", "", "extern \"C\" {", ""]
    for iface in ("IService", "IClient"):
        for msg in mod.interfaces[iface]:
            prefix = f"{M}_{iface}_{msg.name}"
            params = [f"{param_type(m.type)}" for m in msg.params] + (["bool dispose"] if msg.dispose else [])
            to_params = ", ".join(["const std::string& sender"] + [
                f"{p} /*{m.name}*/" for p, m in zip(params, msg.params)] + (["bool dispose"] if msg.dispose else []))
            dispose_text = ' + (dispose ? " dispose" : "")' if msg.dispose else ""
            values = [api_type(m.type) for m in msg.params] + (["bool"] if msg.dispose else [])
            injector = ", ".join(["const std::string&"] + [f"const {v}&" for v in values])
            defaults = ", ".join(["sender"] + [f"{v}{{}}" for v in values])
            out += [f"#ifndef OMIT_{prefix}_ToPlugin",
                    f"KELVA_PLUGIN_EXPORT void {prefix}_ToPlugin({to_params}) {{",
                    f"    record(\"{prefix}_ToPlugin \" + sender{dispose_text});",
                    "}", "#endif",
                    f"#ifndef OMIT_{prefix}_FromPlugin",
                    f"KELVA_PLUGIN_EXPORT void {prefix}_FromPlugin(const std::string& actor, std::function<void({injector})> inject) {{",
                    f"    record(\"{prefix}_FromPlugin \" + actor);",
                    "    std::lock_guard<std::mutex> lock(g_mutex);",
                    f"    g_injectors[\"{iface}_{msg.name}\"] = [inject](const std::string& sender) {{ inject({defaults}); }};",
                    "}", "#endif", ""]
    out += ["KELVA_PLUGIN_EXPORT std::size_t vantrel_plugin_record_count() {",
            "    std::lock_guard<std::mutex> lock(g_mutex);",
            "    return g_records.size();", "}", "",
            "// The i-th recorded call, or empty; the text stays valid until the next reset.",
            "KELVA_PLUGIN_EXPORT const char* vantrel_plugin_record(std::size_t i) {",
            "    std::lock_guard<std::mutex> lock(g_mutex);",
            "    return i < g_records.size() ? g_records[i].c_str() : \"\";", "}", "",
            "// Injects `operation` (\"IService_CmdX\") with default arguments as if `sender` had sent it.",
            "KELVA_PLUGIN_EXPORT bool vantrel_plugin_inject(const char* operation, const char* sender) {",
            "    std::function<void(const std::string&)> injector;",
            "    {",
            "        std::lock_guard<std::mutex> lock(g_mutex);",
            "        auto it = g_injectors.find(operation);",
            "        if (it == g_injectors.end()) return false;",
            "        injector = it->second;",
            "    }",
            "    injector(sender);",
            "    return true;", "}", "",
            "// Forgets records and injectors (the injectors die with the observers that made them).",
            "KELVA_PLUGIN_EXPORT void vantrel_plugin_reset() {",
            "    std::lock_guard<std::mutex> lock(g_mutex);",
            "    g_records.clear();",
            "    g_injectors.clear();", "}", "",
            "}  // extern \"C\"", ""]
    return "\n".join(out)
