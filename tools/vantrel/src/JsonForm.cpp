#include "vantrel/tool/JsonForm.h"

#include <dds/dds.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "vantrel/tool/Errors.h"
#include "vantrel/tool/WireSample.h"

namespace vantrel::tool {

using catalog::Kind;
using catalog::MemberInfo;
using catalog::StructInfo;
using catalog::TypeInfo;
using nlohmann::json;

namespace {

struct Sequence {  // the layout of every idlc sequence
    uint32_t maximum;
    uint32_t length;
    void* buffer;
    bool release;
};

template <class T>
T load(const void* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <class T>
void store(void* p, T v) {
    std::memcpy(p, &v, sizeof v);
}

json valueToJson(const TypeInfo& type, const void* p) {
    switch (type.kind) {
        case Kind::Bool: return load<bool>(p);
        case Kind::Octet: return load<uint8_t>(p);
        case Kind::Int16: return load<int16_t>(p);
        case Kind::UInt16: return load<uint16_t>(p);
        case Kind::Int32: return load<int32_t>(p);
        case Kind::UInt32: return load<uint32_t>(p);
        case Kind::Int64: return load<int64_t>(p);
        case Kind::UInt64: return load<uint64_t>(p);
        case Kind::Float: return load<float>(p);
        case Kind::Double: return load<double>(p);
        case Kind::String: {
            const char* s = load<const char*>(p);
            return s ? s : "";
        }
        case Kind::BoundedString: return std::string(static_cast<const char*>(p), strnlen(static_cast<const char*>(p), type.bound + 1));
        case Kind::Enum: {
            const int32_t v = load<int32_t>(p);
            if (v >= 0 && static_cast<uint32_t>(v) < type.enumeration->count) return type.enumeration->literals[v];
            return v;  // a value a peer sent outside the literals: shown as the number
        }
        case Kind::Struct: return toJson(*type.structure, p);
        case Kind::Sequence: {
            const auto seq = load<Sequence>(p);
            json out = json::array();
            for (uint32_t i = 0; i < seq.length; ++i)
                out.push_back(valueToJson(*type.element, static_cast<const char*>(seq.buffer) + i * type.element->size));
            return out;
        }
    }
    return nullptr;
}

[[noreturn]] void wrong(const std::string& path, const std::string& expected, const json& got) {
    std::string shown = got.dump();
    if (shown.size() > 60) shown = shown.substr(0, 57) + "...";
    throw InputError(path + ": expected " + expected + ", got " + shown);
}

template <class T>
void storeInteger(void* p, const json& v, const std::string& path, const char* what) {
    if (v.is_number_integer()) {
        if (v.is_number_unsigned()) {
            const auto u = v.get<uint64_t>();
            if (u <= static_cast<uint64_t>(std::numeric_limits<T>::max())) return store<T>(p, static_cast<T>(u));
        } else {
            const auto s = v.get<int64_t>();
            if (s >= static_cast<int64_t>(std::numeric_limits<T>::min()) &&
                (s < 0 || static_cast<uint64_t>(s) <= static_cast<uint64_t>(std::numeric_limits<T>::max())))
                return store<T>(p, static_cast<T>(s));
        }
        throw InputError(path + ": " + v.dump() + " is out of range for " + what);
    }
    wrong(path, std::string("an integer (") + what + ")", v);
}

void valueFromJson(const json& v, const TypeInfo& type, void* p, const std::string& path) {
    switch (type.kind) {
        case Kind::Bool:
            if (!v.is_boolean()) wrong(path, "true or false", v);
            return store<bool>(p, v.get<bool>());
        case Kind::Octet: return storeInteger<uint8_t>(p, v, path, "octet");
        case Kind::Int16: return storeInteger<int16_t>(p, v, path, "int16");
        case Kind::UInt16: return storeInteger<uint16_t>(p, v, path, "uint16");
        case Kind::Int32: return storeInteger<int32_t>(p, v, path, "int32");
        case Kind::UInt32: return storeInteger<uint32_t>(p, v, path, "uint32");
        case Kind::Int64: return storeInteger<int64_t>(p, v, path, "int64");
        case Kind::UInt64: return storeInteger<uint64_t>(p, v, path, "uint64");
        case Kind::Float:
            if (!v.is_number()) wrong(path, "a number", v);
            return store<float>(p, v.get<float>());
        case Kind::Double:
            if (!v.is_number()) wrong(path, "a number", v);
            return store<double>(p, v.get<double>());
        case Kind::String: {
            if (!v.is_string()) wrong(path, "a string", v);
            const auto& s = v.get_ref<const std::string&>();
            if (s.find('\0') != std::string::npos) throw InputError(path + ": a string may not contain NUL");
            dds_free(load<char*>(p));
            return store<char*>(p, dds_string_dup(s.c_str()));
        }
        case Kind::BoundedString: {
            if (!v.is_string()) wrong(path, "a string", v);
            const auto& s = v.get_ref<const std::string&>();
            if (s.size() > type.bound)
                throw InputError(path + ": string of " + std::to_string(s.size()) + " characters exceeds its bound of " +
                                 std::to_string(type.bound));
            std::memcpy(p, s.c_str(), s.size() + 1);
            return;
        }
        case Kind::Enum: {
            const auto& e = *type.enumeration;
            if (v.is_string()) {
                for (uint32_t i = 0; i < e.count; ++i)
                    if (v.get_ref<const std::string&>() == e.literals[i]) return store<int32_t>(p, static_cast<int32_t>(i));
            }
            std::string literals;
            for (uint32_t i = 0; i < e.count; ++i) literals += (i ? ", " : "") + std::string(e.literals[i]);
            wrong(path, std::string("a literal of ") + e.module + "::" + e.name + " (" + literals + ")", v);
        }
        case Kind::Struct:
            return fromJson(v, *type.structure, p, path);
        case Kind::Sequence: {
            const TypeInfo& element = *type.element;
            if (element.kind == Kind::Octet && v.is_string()) {  // a byte list may be given as text
                const auto& s = v.get_ref<const std::string&>();
                json bytes = json::array();
                for (unsigned char c : s) bytes.push_back(c);
                return valueFromJson(bytes, type, p, path);
            }
            if (!v.is_array()) wrong(path, type.bound == 1 ? "an array of zero or one element (an optional)" : "an array", v);
            if (type.bound && v.size() > type.bound)
                throw InputError(path + ": " + (type.bound == 1 ? "optional holds " : "list holds ") +
                                 std::to_string(v.size()) + " elements, at most " + std::to_string(type.bound));
            auto seq = load<Sequence>(p);
            if (seq.release) dds_free(seq.buffer);  // (only when filled twice; contents are zero then)
            seq.length = seq.maximum = static_cast<uint32_t>(v.size());
            seq.buffer = v.empty() ? nullptr : dds_alloc(v.size() * element.size);  // zeroed
            seq.release = true;
            store(p, seq);
            for (std::size_t i = 0; i < v.size(); ++i)
                valueFromJson(v[i], element, static_cast<char*>(seq.buffer) + i * element.size,
                              path + "[" + std::to_string(i) + "]");
            return;
        }
    }
}

}  // namespace

json toJson(const StructInfo& type, const void* data, bool withActor) {
    json out = json::object();
    for (uint32_t i = 0; i < type.count; ++i) {
        const MemberInfo& m = type.members[i];
        if (!withActor && std::strcmp(m.name, kSendingActorMember) == 0) continue;
        out[m.name] = valueToJson(m.type, static_cast<const char*>(data) + m.offset);
    }
    return out;
}

json keysToJson(const StructInfo& type, const void* data) {
    json out = json::object();
    for (uint32_t i = 0; i < type.count; ++i) {
        const MemberInfo& m = type.members[i];
        if (m.key) out[m.name] = valueToJson(m.type, static_cast<const char*>(data) + m.offset);
    }
    return out;
}

void fromJson(const json& value, const StructInfo& type, void* data, const std::string& path) {
    if (!value.is_object()) wrong(path, std::string("an object (") + type.module + "::" + type.name + ")", value);
    for (const auto& [name, member] : value.items()) {
        const MemberInfo* found = nullptr;
        for (uint32_t i = 0; i < type.count && !found; ++i)
            if (name == type.members[i].name && name != kSendingActorMember) found = &type.members[i];
        const std::string where = path.empty() ? name : path + "." + name;
        if (!found) {
            std::string known;
            for (uint32_t i = 0; i < type.count; ++i)
                if (std::strcmp(type.members[i].name, kSendingActorMember) != 0)
                    known += (known.empty() ? "" : ", ") + std::string(type.members[i].name);
            throw InputError(where + ": no such member in " + type.module + "::" + type.name + " (members: " +
                             (known.empty() ? "none" : known) + ")");
        }
        valueFromJson(member, found->type, static_cast<char*>(data) + found->offset, where);
    }
}

}  // namespace vantrel::tool
