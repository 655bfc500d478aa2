#pragma once
// The toolkit's view of the test wire types, and a Keyed as plain values.
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

// A Keyed as values: Id, Value, Text.
using Keyed = std::tuple<std::string, int, std::string>;

inline Keyed copy(const kelva_test_Keyed& s) { return {s.Id ? s.Id : "", s.Value, s.Text ? s.Text : ""}; }

// The C struct pointing into `k`, which must outlive it.
inline kelva_test_Keyed view(const Keyed& k) {
    kelva_test_Keyed s{};
    s.Id = const_cast<char*>(std::get<0>(k).c_str());
    s.Value = std::get<1>(k);
    s.Text = const_cast<char*>(std::get<2>(k).c_str());
    return s;
}

}  // namespace kelva_test_support
