#pragma once
// The toolkit's view of the test wire types, and small owners that fill their C structs.
#include <ostream>
#include <string>
#include <tuple>

#include "kelva/access/TypeTraits.h"
#include "kelva_test_types.h"

namespace kelva::access {

template <>
struct TypeTraits<kelva_test_Keyed> {
    static const dds_topic_descriptor_t* descriptor() { return &kelva_test_Keyed_desc; }
    static const char* className() { return "kelva_test::Keyed"; }
    static void print(std::ostream& out, const kelva_test_Keyed& s) {
        // A disposal carries only the key: the other strings may be null.
        out << "Keyed{Id=" << (s.Id ? s.Id : "") << ", Value=" << s.Value << ", Text=" << (s.Text ? s.Text : "")
            << "}";
    }
};

template <>
struct TypeTraits<kelva_test_Plain> {
    static const dds_topic_descriptor_t* descriptor() { return &kelva_test_Plain_desc; }
    static const char* className() { return "kelva_test::Plain"; }
    static void print(std::ostream& out, const kelva_test_Plain& s) { out << "Plain{Value=" << s.Value << "}"; }
};

}  // namespace kelva::access

namespace kelva_test_support {

// Owns the strings a kelva_test_Keyed points at.
class KeyedSample {
public:
    KeyedSample(std::string id, int value, std::string text = "") : m_id(std::move(id)), m_text(std::move(text)) {
        m_sample.Id = const_cast<char*>(m_id.c_str());
        m_sample.Value = value;
        m_sample.Text = const_cast<char*>(m_text.c_str());
    }
    KeyedSample(const KeyedSample&) = delete;
    KeyedSample& operator=(const KeyedSample&) = delete;
    const kelva_test_Keyed& get() const { return m_sample; }

private:
    std::string m_id;
    std::string m_text;
    kelva_test_Keyed m_sample{};
};

// A received Keyed, copied out of the loaned sample.
struct KeyedCopy {
    std::string id;
    int value = 0;
    std::string text;

    static KeyedCopy of(const kelva_test_Keyed& s) { return {s.Id ? s.Id : "", s.Value, s.Text ? s.Text : ""}; }
    bool operator==(const KeyedCopy& o) const { return std::tie(id, value, text) == std::tie(o.id, o.value, o.text); }
    bool operator<(const KeyedCopy& o) const { return std::tie(id, value, text) < std::tie(o.id, o.value, o.text); }
};

inline std::ostream& operator<<(std::ostream& out, const KeyedCopy& k) {
    return out << "{" << k.id << ", " << k.value << ", " << k.text << "}";
}

inline kelva_test_Plain plain(int value) {
    kelva_test_Plain p{};
    p.Value = value;
    return p;
}

}  // namespace kelva_test_support
