#pragma once
// The one walk over an idlc C wire struct, driven by the catalogue: what every generic reader and filler
// of wire messages (the tool's JSON form, the Python binding) stands on. It owns the wire layout (the
// sequence struct, inline and pointed-at strings, 32-bit enumerations, nested structs, optionals as
// sequences bounded to one element), the member paths of error texts ("Alarm.TimeAcknowledged[0]") and
// the checks every wire value must pass whatever it is made from (bounds, NUL in strings), with the
// senders' wording. What differs between forms (their value types, their type errors) is the reader's or
// the source's.
#include <dds/dds.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "vantrel/catalog/Catalog.h"

namespace vantrel::catalog {

// Where a value sits: a member name or a sequence index below its parent.
struct WirePath {
    const WirePath* parent;
    const char* member;  // null: `index` of a sequence; "": the value walked from (kWireRoot)
    std::size_t index;

    // "Condition.SubsystemName", "AlarmIdList[1]"; empty for the value walked from.
    std::string text() const;
};
inline constexpr WirePath kWireRoot{nullptr, "", 0};

// What a value failed on: its type (the source's vocabulary) or its value (a bound, a range, a NUL).
enum class WireFault : uint8_t { Type, Value };

// The texts of the checks the walk makes.
std::string nulInString();

template <class T>
T loadWire(const void* wire) {
    T value;
    std::memcpy(&value, wire, sizeof value);
    return value;
}

template <class T>
void storeWire(void* wire, const T& value) {
    std::memcpy(wire, &value, sizeof value);
}

// ---- Reading: a wire value into another form ---------------------------------------------------------
//
// A Reader builds its form bottom-up:
//   using Value = ...;
//   Value boolean(bool);
//   template <class T> Value number(T);                  // the integer and floating kinds as their C types
//   Value text(const char* data, std::size_t size);      // both string kinds
//   Value enumeration(const EnumInfo&, int32_t raw);     // raw may be outside the literals
//   template <class Items> Value sequence(const TypeInfo& type, const dds_sequence_t& seq, Items items);
//       // items(i) reads element i; seq._buffer holds the elements (octets may be taken whole)
//   template <class Members> Value structure(const StructInfo&, Members members);
//       // members(i) reads member i

template <class Reader>
typename Reader::Value readWire(Reader& reader, const TypeInfo& type, const void* wire);

template <class Reader>
typename Reader::Value readWireMember(Reader& reader, const StructInfo& info, uint32_t member, const void* wire) {
    const MemberInfo& m = info.members[member];
    return readWire(reader, m.type, static_cast<const char*>(wire) + m.offset);
}

template <class Reader>
typename Reader::Value readWireStruct(Reader& reader, const StructInfo& info, const void* wire) {
    return reader.structure(info, [&](uint32_t i) { return readWireMember(reader, info, i, wire); });
}

template <class Reader>
typename Reader::Value readWire(Reader& reader, const TypeInfo& type, const void* wire) {
    switch (type.kind) {
        case Kind::Bool: return reader.boolean(loadWire<bool>(wire));
        case Kind::Octet: return reader.number(loadWire<uint8_t>(wire));
        case Kind::Int16: return reader.number(loadWire<int16_t>(wire));
        case Kind::UInt16: return reader.number(loadWire<uint16_t>(wire));
        case Kind::Int32: return reader.number(loadWire<int32_t>(wire));
        case Kind::UInt32: return reader.number(loadWire<uint32_t>(wire));
        case Kind::Int64: return reader.number(loadWire<int64_t>(wire));
        case Kind::UInt64: return reader.number(loadWire<uint64_t>(wire));
        case Kind::Float: return reader.number(loadWire<float>(wire));
        case Kind::Double: return reader.number(loadWire<double>(wire));
        case Kind::String: {
            const char* s = loadWire<const char*>(wire);
            return s ? reader.text(s, std::strlen(s)) : reader.text("", 0);
        }
        case Kind::BoundedString: {
            const char* s = static_cast<const char*>(wire);
            return reader.text(s, strnlen(s, type.bound + 1));
        }
        case Kind::Enum: return reader.enumeration(*type.enumeration, loadWire<int32_t>(wire));
        case Kind::Struct: return readWireStruct(reader, *type.structure, wire);
        case Kind::Sequence: {
            const auto seq = loadWire<dds_sequence_t>(wire);
            const TypeInfo& element = *type.element;
            return reader.sequence(type, seq, [&, buffer = seq._buffer](uint32_t i) {
                return readWire(reader, element, buffer + std::size_t{i} * element.size);
            });
        }
    }
    return reader.boolean(false);  // not reached: every kind is handled
}

// ---- Filling: a value of another form into a zeroed wire struct -------------------------------------
//
// A Source reads its form; the walk places what it gives:
//   using Value = ...;
//   bool boolean(Value, const WirePath&);
//   template <class T> T number(Value, const WirePath&, Kind);   // range-checked in the source's terms
//   std::string_view text(Value, const WirePath&);   // the bytes, valid until the next call of text()
//   int32_t enumeration(const EnumInfo&, Value, const WirePath&);
//   bool octets(const TypeInfo& sequence, Value, std::string_view& bytes);  // an octet list given whole
//   Items items(const TypeInfo& sequence, Value, const WirePath&);  // Items: size(), operator[](i) -> Value
//   template <class Fill> void structure(const StructInfo&, Value, const WirePath&, Fill fill);
//       // calls fill(i, member value) for each member it sets (members it leaves alone stay zero)
//   void* allocate(std::size_t bytes);                 // zeroed; sequence buffers
//   char* copyText(std::string_view);                  // terminated; unbounded strings
//   static constexpr bool kReleases;                   // whether the sample owns what allocate gave
//   [[noreturn]] void fail(WireFault, const WirePath&, const std::string& problem);

template <class Source>
class WireFiller {
public:
    using Value = typename Source::Value;

    explicit WireFiller(Source& source) : m_source(source) {}

    void member(const StructInfo& info, uint32_t i, void* wire, Value value, const WirePath* parent) {
        const MemberInfo& m = info.members[i];
        const WirePath path{parent, m.name, 0};
        fill(m.type, static_cast<char*>(wire) + m.offset, value, path);
    }

    void structure(const StructInfo& info, void* wire, Value value, const WirePath& path) {
        m_source.structure(info, value, path, [&](uint32_t i, Value member) { this->member(info, i, wire, member, &path); });
    }

    void fill(const TypeInfo& type, void* wire, Value value, const WirePath& path) {
        switch (type.kind) {
            case Kind::Bool: return storeWire<bool>(wire, m_source.boolean(value, path));
            case Kind::Octet: return storeWire(wire, m_source.template number<uint8_t>(value, path, type.kind));
            case Kind::Int16: return storeWire(wire, m_source.template number<int16_t>(value, path, type.kind));
            case Kind::UInt16: return storeWire(wire, m_source.template number<uint16_t>(value, path, type.kind));
            case Kind::Int32: return storeWire(wire, m_source.template number<int32_t>(value, path, type.kind));
            case Kind::UInt32: return storeWire(wire, m_source.template number<uint32_t>(value, path, type.kind));
            case Kind::Int64: return storeWire(wire, m_source.template number<int64_t>(value, path, type.kind));
            case Kind::UInt64: return storeWire(wire, m_source.template number<uint64_t>(value, path, type.kind));
            case Kind::Float: return storeWire(wire, m_source.template number<float>(value, path, type.kind));
            case Kind::Double: return storeWire(wire, m_source.template number<double>(value, path, type.kind));
            case Kind::String:
            case Kind::BoundedString: return string(type, wire, m_source.text(value, path), path);
            case Kind::Enum: return storeWire<int32_t>(wire, m_source.enumeration(*type.enumeration, value, path));
            case Kind::Struct: return structure(*type.structure, wire, value, path);
            case Kind::Sequence: return sequence(type, wire, value, path);
        }
    }

private:
    void string(const TypeInfo& type, void* wire, std::string_view text, const WirePath& path) {
        if (text.find('\0') != std::string_view::npos) m_source.fail(WireFault::Value, path, nulInString());
        if (type.kind == Kind::String) return storeWire<char*>(wire, m_source.copyText(text));
        checkStringBound(text.size(), type.bound, path);
        std::memcpy(wire, text.data(), text.size());
        static_cast<char*>(wire)[text.size()] = '\0';
    }

    void sequence(const TypeInfo& type, void* wire, Value value, const WirePath& path) {
        const TypeInfo& element = *type.element;
        std::string_view bytes;
        if (element.kind == Kind::Octet && m_source.octets(type, value, bytes)) {
            checkSequenceBound(bytes.size(), type.bound, path);
            void* buffer = bytes.empty() ? nullptr : m_source.allocate(bytes.size());
            if (!bytes.empty()) std::memcpy(buffer, bytes.data(), bytes.size());
            return place(wire, buffer, bytes.size());
        }
        auto&& items = m_source.items(type, value, path);
        const std::size_t n = items.size();
        checkSequenceBound(n, type.bound, path);
        char* buffer = n ? static_cast<char*>(m_source.allocate(n * element.size)) : nullptr;
        place(wire, buffer, n);  // placed first: an owning sample frees it when a later element fails
        for (std::size_t i = 0; i < n; ++i) fill(element, buffer + i * element.size, items[i], WirePath{&path, nullptr, i});
    }

    void place(void* wire, void* buffer, std::size_t n) {
        dds_sequence_t seq{};
        seq._maximum = seq._length = static_cast<uint32_t>(n);
        seq._buffer = static_cast<uint8_t*>(buffer);
        seq._release = Source::kReleases;
        storeWire(wire, seq);
    }

    void checkStringBound(std::size_t size, uint32_t bound, const WirePath& path);
    void checkSequenceBound(std::size_t size, uint32_t bound, const WirePath& path);

    Source& m_source;
};

// The bound checks' texts come from the senders' conversions, so a bound error reads the same from C++,
// the tool and Python. (Out of line: the frame's texts are not a template matter.)
std::string wireStringOverBound(std::size_t size, std::size_t bound);
std::string wireSequenceOverBound(std::size_t size, std::size_t bound);

template <class Source>
void WireFiller<Source>::checkStringBound(std::size_t size, uint32_t bound, const WirePath& path) {
    if (size > bound) m_source.fail(WireFault::Value, path, wireStringOverBound(size, bound));
}

template <class Source>
void WireFiller<Source>::checkSequenceBound(std::size_t size, uint32_t bound, const WirePath& path) {
    if (bound != 0 && size > bound) m_source.fail(WireFault::Value, path, wireSequenceOverBound(size, bound));
}

}  // namespace vantrel::catalog
