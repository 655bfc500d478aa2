#include "KeyMemberCheck.h"

#include <dds/ddsc/dds_opcodes.h>

#include <array>
#include <limits>
#include <utility>

namespace kelva::access::detail {

// The key members that appear as member headers of one mutable struct, and the levels below them on
// the way to nested key members.
struct KeyMemberCheck::Level {
    struct Key {
        uint32_t id;
        uint32_t lengthCode;
        std::unique_ptr<Level> nested;  // the key member's own type, when a key lies inside it
    };
    std::vector<Key> keys;
};

namespace {

using Path = std::vector<uint32_t>;  // op offsets from a type's first op to the key member, level by level

constexpr uint32_t kLengthCodeNextInt = 4;
constexpr uint32_t kMustUnderstand = 0x80000000u;

// The length code the DDS layer writes in the member header of a member whose first op is `adr`.
uint32_t lengthCodeOf(const uint32_t* adr) {
    const uint32_t insn = adr[0];
    auto bySize = [](uint32_t size) -> uint32_t { return size == 1 ? 0 : size == 2 ? 1 : size == 4 ? 2 : 3; };
    switch (DDS_OP_TYPE(insn)) {
    case DDS_OP_VAL_BLN: case DDS_OP_VAL_1BY: return 0;
    case DDS_OP_VAL_2BY: return 1;
    case DDS_OP_VAL_4BY: return 2;
    case DDS_OP_VAL_8BY: return 3;
    case DDS_OP_VAL_ENU: case DDS_OP_VAL_BMK: return bySize(DDS_OP_TYPE_SZ(insn));
    case DDS_OP_VAL_STR: case DDS_OP_VAL_BST: return 5;
    case DDS_OP_VAL_SEQ: case DDS_OP_VAL_BSQ:
        switch (DDS_OP_SUBTYPE(insn)) {
        case DDS_OP_VAL_2BY: return 4;
        case DDS_OP_VAL_4BY: return 6;
        case DDS_OP_VAL_8BY: return 7;
        default: return 5;
        }
    case DDS_OP_VAL_ARR:
        switch (DDS_OP_SUBTYPE(insn)) {
        case DDS_OP_VAL_BLN: case DDS_OP_VAL_1BY: case DDS_OP_VAL_2BY: case DDS_OP_VAL_4BY: case DDS_OP_VAL_8BY:
            return 4;
        default: return 5;
        }
    default: return 4;  // unions and nested types
    }
}

// The member id of the member whose first op is `adr`, from the member list (PLM ops) after a PLC op;
// base types' members included.
bool memberIdOf(const uint32_t* plmList, const uint32_t* adr, uint32_t& id) {
    for (const uint32_t* entry = plmList; *entry != DDS_OP_RTS; entry += 2) {
        const uint32_t* memberOps = entry + DDS_OP_ADR_PLM(*entry);
        if (DDS_PLM_FLAGS(*entry) & DDS_OP_FLAG_BASE) {
            if (memberIdOf(memberOps + 1, adr, id)) return true;
        } else if (memberOps == adr) {
            id = entry[1];
            return true;
        }
    }
    return false;
}

// Null when the struct whose ops begin at `type` has no member headers (final or appendable): the
// extraction then reads its members in order and cannot be misled into counting one twice.
std::unique_ptr<KeyMemberCheck::Level> levelOf(const uint32_t* type, const std::vector<Path>& paths) {
    if (DDS_OP(type[0]) != DDS_OP_PLC) return nullptr;
    auto level = std::make_unique<KeyMemberCheck::Level>();
    std::vector<std::pair<uint32_t, std::vector<Path>>> byMember;  // first offset -> the rest of each path
    for (const Path& path : paths) {
        auto it = byMember.begin();
        while (it != byMember.end() && it->first != path.front()) ++it;
        if (it == byMember.end()) it = byMember.insert(byMember.end(), {path.front(), {}});
        if (path.size() > 1) it->second.emplace_back(path.begin() + 1, path.end());
    }
    for (const auto& [offset, rest] : byMember) {
        const uint32_t* adr = type + offset;
        KeyMemberCheck::Level::Key key{0, lengthCodeOf(adr), nullptr};
        if (!memberIdOf(type + 1, adr, key.id)) return nullptr;  // not a descriptor the DDS layer accepts
        if (!rest.empty() && DDS_OP_TYPE(adr[0]) == DDS_OP_VAL_EXT)
            key.nested = levelOf(adr + DDS_OP_ADR_JSR(adr[2]), rest);
        level->keys.push_back(std::move(key));
    }
    return level;
}

class Reader {
public:
    Reader(SampleBytes& bytes, bool bigEndian) : m_bytes(bytes), m_bigEndian(bigEndian) {}
    bool u32(std::size_t at, std::size_t limit, uint32_t& value) {
        unsigned char b[4];
        if (at > limit || limit - at < 4 || !m_bytes.read(at, b, 4)) return false;
        value = m_bigEndian ? (uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3])
                            : (uint32_t{b[3]} << 24 | uint32_t{b[2]} << 16 | uint32_t{b[1]} << 8 | b[0]);
        return true;
    }

private:
    SampleBytes& m_bytes;
    bool m_bigEndian;
};

std::size_t align4(std::size_t at) { return (at + 3) & ~std::size_t{3}; }

// Walks one member list (DHEADER, then member headers) starting at `at` within [.., limit) as the DDS
// layer's normalization and key extraction do.
const char* checkLevel(const KeyMemberCheck::Level& level, Reader& in, std::size_t at, std::size_t limit) {
    uint32_t listSize;
    at = align4(at);
    if (!in.u32(at, limit, listSize)) return "member list header beyond the sample";
    at += 4;
    if (listSize > limit - at) return "member list longer than the sample";
    const std::size_t end = at + listSize;
    constexpr std::size_t kCounted = 64;
    std::array<uint8_t, kCounted> seen{};
    if (level.keys.size() > kCounted) return "too many key members to check";
    while (at < end) {
        uint32_t header;
        at = align4(at);
        if (!in.u32(at, end, header)) return "member header beyond the member list";
        at += 4;
        const uint32_t lengthCode = (header >> 28) & 7;
        const uint32_t id = header & 0x0fffffffu;
        std::size_t length;
        if (lengthCode < 4) {
            length = std::size_t{1} << lengthCode;
        } else {
            uint32_t next;
            if (!in.u32(at, end, next)) return "member length beyond the member list";
            if (lengthCode == kLengthCodeNextInt) {
                at += 4;
                length = next;
            } else {
                const uint32_t shift = lengthCode == 5 ? 0 : lengthCode - 4;  // 6: 4-byte, 7: 8-byte elements
                if (next > (std::numeric_limits<uint32_t>::max() >> shift)) return "member length overflows";
                const uint32_t scaled = next << shift;
                if (scaled > std::numeric_limits<uint32_t>::max() - 4) return "member length overflows";
                length = std::size_t{scaled} + 4;
            }
        }
        if (length > end - at) return "member longer than the member list";
        for (std::size_t k = 0; k < level.keys.size(); ++k) {
            const auto& key = level.keys[k];
            if (key.id != id) continue;
            if (lengthCode != key.lengthCode) return "key member with a length code other than its type's";
            if (!(header & kMustUnderstand)) return "key member without the must-understand flag";
            if (seen[k]++) return "key member repeated";
            if (key.nested)
                if (const char* why = checkLevel(*key.nested, in, at, at + length)) return why;
        }
        at += length;
    }
    for (std::size_t k = 0; k < level.keys.size(); ++k)
        if (!seen[k]) return "key member missing";
    return nullptr;
}

}  // namespace

KeyMemberCheck::KeyMemberCheck(std::unique_ptr<Level> top) : m_top(std::move(top)) {}
KeyMemberCheck::~KeyMemberCheck() = default;

std::unique_ptr<KeyMemberCheck> KeyMemberCheck::forType(const uint32_t* ops, uint32_t nkeys,
                                                        const dds_key_descriptor_t* keys) {
    std::vector<Path> paths;
    for (uint32_t i = 0; i < nkeys; ++i) {
        const uint32_t* op = ops + keys[i].m_offset;
        if (DDS_OP(*op) != DDS_OP_KOF) return nullptr;  // keys of a final type: read in order
        const uint32_t n = DDS_OP_LENGTH(*op);
        if (n == 0) return nullptr;
        paths.emplace_back(op + 1, op + 1 + n);
    }
    if (paths.empty()) return nullptr;
    auto top = levelOf(ops, paths);
    if (!top) return nullptr;
    return std::unique_ptr<KeyMemberCheck>(new KeyMemberCheck(std::move(top)));
}

const char* KeyMemberCheck::check(SampleBytes& bytes, std::size_t size) const {
    unsigned char header[4];
    if (size < 4 || !bytes.read(0, header, 4)) return "shorter than its encapsulation header";
    const unsigned identifier = unsigned{header[0]} << 8 | header[1];
    if (identifier != 0x000a && identifier != 0x000b) return nullptr;  // not XCDR2 parameter lists
    const std::size_t padding = (unsigned{header[2]} << 8 | header[3]) & 2;  // as the DDS layer reads it
    if (size - 4 < padding) return "shorter than its padding";
    Reader in(bytes, identifier == 0x000a);
    return checkLevel(*m_top, in, 4, size - padding);
}

}  // namespace kelva::access::detail
