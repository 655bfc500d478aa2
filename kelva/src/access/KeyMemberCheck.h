#pragma once
// What the DDS layer's key extraction trusts in a received sample of a type with mutable levels, checked
// before the sample reaches it. The extraction walks the member headers of a mutable struct and counts
// key members as it meets them; a header that repeats one key member's id where another key member
// should be makes it count the missing one as found and then read a key position it never wrote. Its
// validation (normalization) checks each member against its type but not that every key member is there
// exactly once. So this check walks the member headers of every mutable level on a key's path, as the
// extraction does, and requires: lengths within the sample, every key member exactly once, with the
// length code its type is written with and the must-understand flag. Built from the type's descriptor ops.
#include <dds/dds.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kelva::access::detail {

// A serialized sample in one or more pieces (received fragments, I/O vectors), read front to back.
class SampleBytes {
public:
    virtual ~SampleBytes() = default;
    // Copies n bytes at offset `at` of the serialized sample; false beyond its end. Offsets do not
    // decrease from one call to the next.
    virtual bool read(std::size_t at, unsigned char* out, std::size_t n) = 0;
};

class KeyMemberCheck {
public:
    // Null when the key extraction reads no member headers of the type (no key, or a top level that is
    // not mutable): then there is nothing to check.
    static std::unique_ptr<KeyMemberCheck> forType(const uint32_t* ops, uint32_t nkeys,
                                                   const dds_key_descriptor_t* keys);
    ~KeyMemberCheck();

    // Null when the sample (`size` bytes, encapsulation header included) passes, otherwise why not. A
    // sample in an encoding other than XCDR2 parameter lists is left to the DDS layer (which refuses it
    // for a mutable type).
    const char* check(SampleBytes& bytes, std::size_t size) const;

    struct Level;

private:
    explicit KeyMemberCheck(std::unique_ptr<Level> top);
    std::unique_ptr<Level> m_top;
};

}  // namespace kelva::access::detail
