#include "SampleValues.h"

#include <dds/dds.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace vantrel::mcap::samples {

using catalog::Kind;
using catalog::StructInfo;
using catalog::TypeInfo;

namespace {

class Filler {
public:
    explicit Filler(int variant) : variant_(variant), n_(1 + 1000 * static_cast<uint64_t>(variant)) {}

    nlohmann::json structure(const StructInfo& s, uint8_t* at, int depth) {
        nlohmann::json out = nlohmann::json::object();
        for (uint32_t i = 0; i < s.count; ++i) {
            out[s.members[i].name] = value(s.members[i].type, at + s.members[i].offset, depth);
        }
        return out;
    }

private:
    // Stores `v` in the C sample and gives it back for the JSON side.
    template <typename T>
    static T put(uint8_t* at, T v) {
        std::memcpy(at, &v, sizeof v);
        return v;
    }

    bool negative() const { return n_ % 2 == 0; }

    // Exactly representable numbers, so both sides print them alike; 64-bit ones beyond 2^53, so a
    // decoder that loses precision is caught.
    nlohmann::json value(const TypeInfo& t, uint8_t* at, int depth) {
        const uint64_t n = n_++;
        const int sign = negative() ? -1 : 1;
        switch (t.kind) {
        case Kind::Bool: return put<bool>(at, n % 2 == 1);
        case Kind::Octet: return put(at, static_cast<uint8_t>(n * 7));
        case Kind::Int16: return put(at, static_cast<int16_t>(sign * static_cast<int>(n * 131 % 32000)));
        case Kind::UInt16: return put(at, static_cast<uint16_t>(60000 + n % 5000));
        case Kind::Int32: return put(at, static_cast<int32_t>(sign * static_cast<int64_t>(2000000000 + n)));
        case Kind::UInt32: return put(at, static_cast<uint32_t>(4000000000U + n));
        case Kind::Int64:
            return std::to_string(put(at, static_cast<int64_t>(sign * static_cast<int64_t>(0x7000000000000000ULL + n))));
        case Kind::UInt64: return std::to_string(put(at, uint64_t{0xF000000000000000ULL + n}));
        case Kind::Float: return put(at, static_cast<float>(sign) * (static_cast<float>(n % 1000) + 0.5F));
        case Kind::Double: return put(at, sign * (1e10 + static_cast<double>(n) + 0.125));
        case Kind::String: {
            // Some text beyond ASCII: a decoder must read UTF-8.
            const std::string s = variant_ == 1 ? std::string() : "text " + std::to_string(n) + " \xC3\xA4\xE2\x82\xAC";
            char* copy = static_cast<char*>(std::malloc(s.size() + 1));
            std::memcpy(copy, s.c_str(), s.size() + 1);
            std::memcpy(at, &copy, sizeof copy);
            return s;
        }
        case Kind::BoundedString: {
            std::string s = "b" + std::to_string(n) + "xyz";
            s.resize(std::min<std::size_t>(s.size(), t.bound));
            std::memcpy(at, s.c_str(), s.size() + 1);
            return s;
        }
        case Kind::Enum: return put(at, static_cast<int32_t>(n % t.enumeration->count));
        case Kind::Struct:
            return structure(*t.structure, at, depth + 1);
        case Kind::Sequence:
            return sequence(t, at, depth);
        }
        return nullptr;
    }

    nlohmann::json sequence(const TypeInfo& t, uint8_t* at, int depth) {
        uint32_t length = variant_ == 0 ? 2U : variant_ == 1 ? 0U : 1U;
        if (depth > 3) {
            length = std::min(length, 1U);  // keeps deep nestings small
        }
        if (t.bound != 0) {
            length = std::min(length, t.bound);
        }
        dds_sequence_t seq{};
        seq._maximum = seq._length = length;
        seq._release = true;
        seq._buffer = length == 0 ? nullptr : static_cast<uint8_t*>(std::calloc(length, t.element->size));
        nlohmann::json out = nlohmann::json::array();
        for (uint32_t i = 0; i < length; ++i) {
            nlohmann::json element = value(*t.element, seq._buffer + i * t.element->size, depth + 1);
            // The channel schema spells these elements as one-member structs (generator/vantrel_gen/schema_idl.py).
            if (t.element->kind == Kind::Enum) {
                element = nlohmann::json{{"Value", element}};
            } else if (t.element->kind == Kind::Sequence) {
                element = nlohmann::json{{"Items", element}};
            }
            out.push_back(std::move(element));
        }
        std::memcpy(at, &seq, sizeof seq);
        return out;
    }

    int variant_;
    uint64_t n_;
};

}  // namespace

nlohmann::json fill(const StructInfo& type, void* sample, int variant) {
    Filler f(variant);
    return f.structure(type, static_cast<uint8_t*>(sample), 0);
}

}  // namespace vantrel::mcap::samples
