"""The catalog of every operation for the receive-path fuzz target: per operation its name, topic name and
wire type descriptor, and a function that creates a receiving facade of every module (a Service reads the
IService operations, a Client the IClient ones) with the interfaces' default bodies as implementation."""

from __future__ import annotations

from .cpp_names import all_messages, wire_message
from .emit_api import HEADER_NOTE
from .model import Module


def emit_fuzz_catalog(mods: list[Module]) -> str:
    mods = [m for m in mods if m.has_interfaces]
    out = [HEADER_NOTE.format(file="*.idl"), "#include \"FuzzCatalog.h\"", ""]
    for mod in mods:
        out += [f"#include \"{mod.name}.h\"", f"#include \"vantrel/{mod.name}.h\""]
    out += ["", "namespace vantrel::fuzz {", "",
            "const std::vector<Operation>& operations() {", "    static const std::vector<Operation> all = {"]
    for mod in mods:
        for msg in all_messages(mod):
            out.append(f"        {{\"{mod.name}.{msg.interface}.{msg.name}\", \"{mod.name}_{msg.interface}_{msg.name}\", "
                       f"&{wire_message(msg)}_desc}},")
    out += ["    };", "    return all;", "}", "",
            "void createReceivers(const std::shared_ptr<kelva::actors::Session>& session, "
            "std::vector<std::shared_ptr<void>>& keep) {"]
    for mod in mods:
        M = mod.name
        out += ["    {",
                f"        auto service = std::make_shared<{M}::IService>();",
                f"        auto client = std::make_shared<{M}::IClient>();",
                f"        keep.emplace_back({M}::Service::_internalSwigCreate(session, \"fuzz-service\", *service));",
                f"        keep.emplace_back({M}::Client::_internalSwigCreate(session, \"fuzz-client\", *client));",
                "        keep.push_back(service);  // after the facades: destroyed after them",
                "        keep.push_back(client);",
                "    }"]
    out += ["}", "", "}  // namespace vantrel::fuzz", ""]
    return "\n".join(out)
