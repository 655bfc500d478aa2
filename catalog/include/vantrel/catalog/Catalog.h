#pragma once
// The contract seen from outside: every module, type and operation as data, generated from idl/ into
// constant tables (nothing runs at start-up). Types describe the idlc C wire structs (offsets, sizes),
// so generic code can read and fill any wire message (through WireVisitor.h): the tool's JSON and text
// forms, recording, the Python binding.
#include <dds/dds.h>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace vantrel::catalog {

enum class Kind : uint8_t {
    Bool, Octet, Int16, UInt16, Int32, UInt32, Int64, UInt64, Float, Double,
    String,         // char* (unbounded)
    BoundedString,  // char[bound + 1] inline
    Sequence,       // {uint32 _maximum, uint32 _length, T* _buffer, bool _release}; bound 0: unbounded
    Enum,           // 32-bit
    Struct,
};

struct EnumInfo;
struct StructInfo;

// A use of a type: a member's type or a sequence's element type.
struct TypeInfo {
    Kind kind;
    uint32_t bound;               // BoundedString: characters; Sequence: elements (0: unbounded)
    uint32_t size;                // bytes one value takes in the C struct (a sequence's element stride)
    const TypeInfo* element;      // Sequence
    const EnumInfo* enumeration;  // Enum
    const StructInfo* structure;  // Struct
    const char* alias;            // the IDL alias the member is declared with ("M_Common::AngleDegreesType"), or null
};

struct EnumInfo {
    const char* module;
    const char* name;             // the wrapper's name (AlarmCategoryKind); the enumeration is its Type
    const char* const* literals;  // value = index
    uint32_t count;
};

struct MemberInfo {
    const char* name;
    TypeInfo type;
    uint32_t offset;  // in the C struct
    bool key;
};

struct StructInfo {
    const char* module;
    const char* name;  // value types: AlarmLogType; messages: IService::CmdRaiseAlarm
    const MemberInfo* members;
    uint32_t count;
    uint32_t size;     // sizeof the C struct
    void (*print)(std::ostream&, const void* wire);  // the text form (the generated printer of the wire type)
};

enum class Role : uint8_t { Client, Service };

// One operation: its wire message, topic and API form.
struct OperationInfo {
    const char* module;
    const char* interface;  // "IService" (sent by clients) or "IClient" (sent by services)
    const char* name;
    const char* typeName;   // the registered DDS type: VendorData::M_Alert::IService::CmdRaiseAlarm
    const dds_topic_descriptor_t* descriptor;
    const StructInfo* message;  // kelva_sending_actor first
    bool dispose;               // the API operation ends in a dispose flag
    const char* signature;      // the API member function: void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& Condition)
    const char* schema;         // the message's IDL, flattened into one self-contained text (omgidl)
    const char* keySchema;      // the same for a disposal's serialized form: the key members only
    void (*print)(std::ostream&, const void* message);  // the text form of a wire message

    // Who sends it.
    Role sender() const;
    // "M_Alert.IService.CmdRaiseAlarm"
    std::string qualifiedName() const;
};

class Facade;
struct FacadeRequest;

struct ModuleInfo {
    const char* name;
    const char* version;  // the interface version
    const StructInfo* const* structs;
    uint32_t structCount;
    const EnumInfo* const* enums;
    uint32_t enumCount;
    const OperationInfo* operations;  // IService operations, then IClient ones, each in declaration order
    uint32_t operationCount;
    // Creates a facade of the module (null for a module of types only).
    std::unique_ptr<Facade> (*create)(const FacadeRequest&);
};

// Every module, in name order.
const std::vector<const ModuleInfo*>& modules();
// Null when there is no such module.
const ModuleInfo* findModule(const std::string& name);
// By "M_X.Op" or "M_X.IService.Op"; null when there is none.
const OperationInfo* findOperation(const std::string& qualifiedName);
// By registered type name (VendorData::M_X::IService::Op); null when there is none.
const OperationInfo* findOperationByType(const std::string& typeName);
// The operations whose "M_X.IService.Op" matches a glob pattern (`*`, `?`). A pattern without a dot
// is a module pattern: "M_Alert" is every operation of M_Alert; one with one dot also matches "M_X.Op"
// ("M_Alert.Cmd*" is every command of M_Alert).
std::vector<const OperationInfo*> matchOperations(const std::string& pattern);
// The known names nearest to one that matched nothing, nearest first, at most `limit`: module names for a
// name without a dot, else operations as "M_X.Op" or "M_X.IService.Op" (as the name was given). Only names
// within a few edits (letter case counts half) are offered; empty when nothing is near.
std::vector<std::string> nearestNames(const std::string& name, std::size_t limit = 3);

// The text names of kinds and of a type use, as IDL spells them ("sequence<M_Common::TimeType, 1>").
const char* kindName(Kind kind);
std::string typeText(const TypeInfo& type);

}  // namespace vantrel::catalog
