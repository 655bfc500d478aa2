#pragma once
// Conversion between API values and the idlc-generated C wire structs, and the text form of wire values.
// The generated per-type functions call these for their members.
//
// API to wire points the wire struct at the API value's storage wherever it can (strings, sequences of
// numbers): nothing is copied, so the API value must outlive the write. What cannot be pointed at
// (sequences of strings, structures, enumerations or bools) is converted into a per-call Scratch.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "vantrel/Export.h"

namespace vantrel::frame {

// Owns the arrays that one message's conversion needed; lives as long as the message. The memory comes from
// a per-thread arena that is reused from one message to the next, so a thread that converted a message of
// some size converts the next one like it without allocating. Scratches on one thread nest (a send from a
// plug-in hook during a send): each gives back exactly what was taken after it was made.
class VANTREL_EXPORT Scratch {
public:
    Scratch() noexcept;
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    // `n` zeroed elements.
    template <class T>
    T* array(std::size_t n) {
        static_assert(std::is_trivially_destructible_v<T>, "wire elements are C structs");
        static_assert(alignof(T) <= alignof(std::max_align_t), "the arena aligns to max_align_t");
        if (n == 0) return nullptr;
        return static_cast<T*>(take(n * sizeof(T), alignof(T)));
    }

private:
    static void* take(std::size_t bytes, std::size_t alignment);
    std::size_t m_block;  // where the arena stood when this scratch was made
    std::size_t m_offset;
};

// A value that cannot go on the wire; names the type and member.
[[noreturn]] VANTREL_EXPORT void refuse(const char* where, const std::string& what);

// The texts of a value over a wire bound, the same from every path that fills a wire struct (the
// senders, the catalogue's wire visitor): "string of 300 characters exceeds its bound of 255",
// "optional holds 2 elements, at most 1", "list holds 101 elements, at most 100".
VANTREL_EXPORT std::string stringOverBound(std::size_t size, std::size_t bound);
VANTREL_EXPORT std::string sequenceOverBound(std::size_t size, std::size_t bound);

// Numbers and bools.
template <class W, class A, std::enable_if_t<std::is_arithmetic_v<A> && std::is_arithmetic_v<W>, int> = 0>
inline void toWire(W& out, const A& in, Scratch&, const char*) {
    out = in;
}
template <class A, class W, std::enable_if_t<std::is_arithmetic_v<A> && std::is_arithmetic_v<W>, int> = 0>
inline void fromWire(A& out, const W& in) {
    out = in;
}

// Unbounded strings: the wire points at the API string.
inline void toWire(char*& out, const std::string& in, Scratch&, const char*) { out = const_cast<char*>(in.c_str()); }
inline void fromWire(std::string& out, const char* in) { out.assign(in ? in : ""); }

// Bounded strings are arrays in the wire struct: copied, after the bound check.
template <std::size_t N>
inline void toWire(char (&out)[N], const std::string& in, Scratch&, const char* where) {
    if (in.size() > N - 1)
        refuse(where, stringOverBound(in.size(), N - 1));
    std::memcpy(out, in.data(), in.size());
    out[in.size()] = '\0';
}
template <std::size_t N>
inline void fromWire(std::string& out, const char (&in)[N]) {
    out.assign(in, strnlen(in, N));
}

// Sequences (lists and optionals); `bound` 0 means unbounded.
template <class W, class = void>
struct IsWireSeq : std::false_type {};
template <class W>
struct IsWireSeq<W, std::void_t<decltype(std::declval<W&>()._buffer), decltype(std::declval<W&>()._length)>>
    : std::true_type {};

template <class Seq, class A>
void toWireSeq(Seq& out, const std::vector<A>& in, Scratch& scratch, const char* where, std::size_t bound);
template <class A, class Seq>
void fromWireSeq(std::vector<A>& out, const Seq& in);
template <class Seq>
void printSeq(std::ostream& out, const Seq& seq);

// A sequence as the element of a sequence (a list of lists).
template <class W, class A, std::enable_if_t<IsWireSeq<W>::value, int> = 0>
inline void toWire(W& out, const std::vector<A>& in, Scratch& scratch, const char* where) {
    toWireSeq(out, in, scratch, where, 0);
}
template <class A, class W, std::enable_if_t<IsWireSeq<W>::value, int> = 0>
inline void fromWire(std::vector<A>& out, const W& in) {
    fromWireSeq(out, in);
}
template <class W, std::enable_if_t<IsWireSeq<W>::value, int> = 0>
inline void print(std::ostream& out, const W& seq) {
    printSeq(out, seq);
}

template <class Seq, class A>
void toWireSeq(Seq& out, const std::vector<A>& in, Scratch& scratch, const char* where, std::size_t bound) {
    using W = std::remove_pointer_t<decltype(out._buffer)>;
    if (bound != 0 && in.size() > bound) refuse(where, sequenceOverBound(in.size(), bound));
    const auto n = static_cast<uint32_t>(in.size());
    out._length = out._maximum = n;
    out._release = false;
    if constexpr (std::is_same_v<W, A> && std::is_arithmetic_v<A> && !std::is_same_v<A, bool>) {
        out._buffer = const_cast<A*>(in.data());  // same layout: point, do not copy
    } else {
        W* buffer = scratch.array<W>(n);
        for (uint32_t i = 0; i < n; ++i) toWire(buffer[i], static_cast<const A&>(in[i]), scratch, where);
        out._buffer = buffer;
    }
}

template <class A, class Seq>
void fromWireSeq(std::vector<A>& out, const Seq& in) {
    using W = std::remove_pointer_t<decltype(in._buffer)>;
    if constexpr (std::is_same_v<W, A> && std::is_arithmetic_v<A> && !std::is_same_v<A, bool>) {
        out.assign(in._buffer, in._buffer + in._length);
    } else {
        // In place: every member is assigned, and elements kept from an earlier decode reuse their storage.
        out.resize(in._length);
        for (uint32_t i = 0; i < in._length; ++i) {
            if constexpr (std::is_same_v<A, bool>) {
                out[i] = in._buffer[i];  // std::vector<bool> hands out proxies, not bool&
            } else {
                fromWire(out[i], in._buffer[i]);
            }
        }
    }
}

// Enumerations. A wire enumeration (a C enum) may hold any 32-bit number a peer sent, also one outside its
// literals, which C++ may not load as the enum type: its storage is read and written as the number.
template <class W>
inline int32_t rawEnum(const W& value) {
    static_assert(std::is_enum_v<W> && sizeof(W) == sizeof(int32_t), "32-bit wire enumeration");
    int32_t raw;
    std::memcpy(&raw, &value, sizeof raw);
    return raw;
}
template <class W, class A>
inline void setRawEnum(W& out, A value) {
    static_assert(std::is_enum_v<W> && sizeof(W) == sizeof(int32_t), "32-bit wire enumeration");
    const auto raw = static_cast<int32_t>(value);
    std::memcpy(&out, &raw, sizeof raw);
}
// Values outside the literals read as literal 0.
template <class A>
inline A enumFromWire(int32_t value, int literalCount) {
    return (value >= 0 && value < literalCount) ? static_cast<A>(value) : static_cast<A>(0);
}

// Text form.
template <class W, std::enable_if_t<std::is_arithmetic_v<W>, int> = 0>
inline void print(std::ostream& out, const W& value) {
    out << value;
}
inline void print(std::ostream& out, const char* value) { out << (value ? value : ""); }
inline void print(std::ostream& out, char* value) { out << (value ? value : ""); }
template <std::size_t N>
inline void print(std::ostream& out, const char (&value)[N]) {
    out.write(value, static_cast<std::streamsize>(strnlen(value, N)));
}

template <class Seq>
void printSeq(std::ostream& out, const Seq& seq) {
    out << '[';
    for (uint32_t i = 0; i < seq._length; ++i) {
        if (i) out << ", ";
        print(out, seq._buffer[i]);
    }
    out << ']';
}

}  // namespace vantrel::frame
