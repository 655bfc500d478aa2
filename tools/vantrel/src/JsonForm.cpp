#include "vantrel/tool/JsonForm.h"

#include <dds/dds.h>

#include <cstring>
#include <limits>
#include <type_traits>

#include "vantrel/catalog/WireVisitor.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/WireSample.h"

namespace vantrel::tool {

using catalog::EnumInfo;
using catalog::Kind;
using catalog::MemberInfo;
using catalog::StructInfo;
using catalog::TypeInfo;
using catalog::WireFault;
using catalog::WirePath;
using nlohmann::json;

namespace {

// Wire values as JSON.
struct JsonReader {
    using Value = json;

    json boolean(bool b) { return b; }
    template <class T>
    json number(T x) { return x; }
    json text(const char* data, std::size_t size) { return std::string(data, size); }
    json enumeration(const EnumInfo& e, int32_t raw) {
        if (raw >= 0 && static_cast<uint32_t>(raw) < e.count) return e.literals[raw];
        return raw;  // a value a peer sent outside the literals: shown as the number
    }
    template <class Items>
    json sequence(const TypeInfo&, const dds_sequence_t& seq, Items items) {
        json out = json::array();
        for (uint32_t i = 0; i < seq._length; ++i) out.push_back(items(i));
        return out;
    }
    template <class Members>
    json structure(const StructInfo& info, Members members) {
        json out = json::object();
        for (uint32_t i = 0; i < info.count; ++i) out[info.members[i].name] = members(i);
        return out;
    }
};

[[noreturn]] void wrong(const WirePath& path, const std::string& expected, const json& got) {
    std::string shown = got.dump();
    if (shown.size() > 60) shown = shown.substr(0, 57) + "...";
    throw InputError(path.text() + ": expected " + expected + ", got " + shown);
}

// JSON values into a wire sample the DDS layer frees (dds_sample_free).
class JsonSource {
public:
    using Value = const json&;
    static constexpr bool kReleases = true;

    bool boolean(const json& v, const WirePath& path) {
        if (!v.is_boolean()) wrong(path, "true or false", v);
        return v.get<bool>();
    }

    template <class T>
    T number(const json& v, const WirePath& path, Kind kind) {
        if constexpr (std::is_floating_point_v<T>) {
            (void)kind;
            if (!v.is_number()) wrong(path, "a number", v);
            return v.get<T>();
        } else {
            if (!v.is_number_integer()) wrong(path, std::string("an integer (") + catalog::kindName(kind) + ")", v);
            if (v.is_number_unsigned()) {
                const auto u = v.get<uint64_t>();
                if (u <= static_cast<uint64_t>(std::numeric_limits<T>::max())) return static_cast<T>(u);
            } else {
                const auto s = v.get<int64_t>();
                if (s >= static_cast<int64_t>(std::numeric_limits<T>::min()) &&
                    (s < 0 || static_cast<uint64_t>(s) <= static_cast<uint64_t>(std::numeric_limits<T>::max())))
                    return static_cast<T>(s);
            }
            throw InputError(path.text() + ": " + v.dump() + " is out of range for " + catalog::kindName(kind));
        }
    }

    std::string_view text(const json& v, const WirePath& path) {
        if (!v.is_string()) wrong(path, "a string", v);
        return v.get_ref<const std::string&>();
    }

    int32_t enumeration(const EnumInfo& e, const json& v, const WirePath& path) {
        if (v.is_string())
            for (uint32_t i = 0; i < e.count; ++i)
                if (v.get_ref<const std::string&>() == e.literals[i]) return static_cast<int32_t>(i);
        std::string literals;
        for (uint32_t i = 0; i < e.count; ++i) literals += (i ? ", " : "") + std::string(e.literals[i]);
        wrong(path, std::string("a literal of ") + e.module + "::" + e.name + " (" + literals + ")", v);
    }

    // A byte list may be given as text.
    bool octets(const TypeInfo&, const json& v, std::string_view& bytes) {
        if (!v.is_string()) return false;
        bytes = v.get_ref<const std::string&>();
        return true;
    }

    const json& items(const TypeInfo& type, const json& v, const WirePath& path) {
        if (!v.is_array()) wrong(path, type.bound == 1 ? "an array of zero or one element (an optional)" : "an array", v);
        return v;
    }

    template <class Fill>
    void structure(const StructInfo& type, const json& value, const WirePath& path, Fill fill) {
        if (!value.is_object()) wrong(path, std::string("an object (") + type.module + "::" + type.name + ")", value);
        for (const auto& [name, member] : value.items()) {
            const MemberInfo* found = nullptr;
            uint32_t index = 0;
            for (uint32_t i = 0; i < type.count && !found; ++i)
                if (name == type.members[i].name && name != kSendingActorMember) found = &type.members[index = i];
            if (!found) {
                std::string known;
                for (uint32_t i = 0; i < type.count; ++i)
                    if (std::strcmp(type.members[i].name, kSendingActorMember) != 0)
                        known += (known.empty() ? "" : ", ") + std::string(type.members[i].name);
                const WirePath where{&path, name.c_str(), 0};
                throw InputError(where.text() + ": no such member in " + type.module + "::" + type.name + " (members: " +
                                 (known.empty() ? "none" : known) + ")");
            }
            fill(index, member);
        }
    }

    void* allocate(std::size_t bytes) { return dds_alloc(bytes); }  // zeroed
    char* copyText(std::string_view text) { return dds_string_dup(std::string(text).c_str()); }

    [[noreturn]] void fail(WireFault, const WirePath& path, const std::string& problem) {
        throw InputError(path.text() + ": " + problem);
    }
};

}  // namespace

json toJson(const StructInfo& type, const void* data, bool withActor) {
    JsonReader reader;
    json out = json::object();
    for (uint32_t i = 0; i < type.count; ++i) {
        const MemberInfo& m = type.members[i];
        if (!withActor && std::strcmp(m.name, kSendingActorMember) == 0) continue;
        out[m.name] = catalog::readWireMember(reader, type, i, data);
    }
    return out;
}

json keysToJson(const StructInfo& type, const void* data) {
    JsonReader reader;
    json out = json::object();
    for (uint32_t i = 0; i < type.count; ++i)
        if (type.members[i].key) out[type.members[i].name] = catalog::readWireMember(reader, type, i, data);
    return out;
}

void fromJson(const json& value, const StructInfo& type, void* data, const std::string& path) {
    JsonSource source;
    catalog::WireFiller<JsonSource> filler(source);
    filler.structure(type, data, value, WirePath{nullptr, path.c_str(), 0});
}

void messageFromArguments(const catalog::OperationInfo& op, const std::string& arguments, void* data) {
    json value;
    try {
        value = json::parse(arguments);
    } catch (const json::parse_error& e) {
        throw InputError(op.qualifiedName() + ": arguments are not valid JSON: " + e.what());
    }
    try {
        fromJson(value, *op.message, data, "");
    } catch (const InputError& e) {
        throw InputError(op.qualifiedName() + ": " + e.what());
    }
}

}  // namespace vantrel::tool
