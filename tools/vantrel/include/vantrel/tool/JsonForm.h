#pragma once
// Wire messages as JSON: member names as in the API, enumerations by literal name, lists and optionals
// as arrays, byte lists as arrays of numbers, 64-bit integers as numbers.
#include <nlohmann/json.hpp>

#include <string>

#include "vantrel/catalog/Catalog.h"

namespace vantrel::tool {

// Every member of the struct at `data` (of a message: without kelva_sending_actor when `withActor` is false).
nlohmann::json toJson(const catalog::StructInfo& type, const void* data, bool withActor = true);
// Only the key members.
nlohmann::json keysToJson(const catalog::StructInfo& type, const void* data);

// Fills the zeroed struct at `data` from a JSON object; omitted members keep their zero value. Strings and
// sequence buffers are allocated with dds_alloc (freed with dds_sample_free). A wrong name, type or bound
// throws InputError naming the member path ("Condition.SubsystemName: expected a string, got 12"); what was
// filled until then stays for dds_sample_free. A message's kelva_sending_actor is never taken from JSON.
void fromJson(const nlohmann::json& value, const catalog::StructInfo& type, void* data, const std::string& path);

// An operation's arguments as JSON text (by API member name) into its zeroed wire message: what "vantrel
// call" and the bridge's publishing clients send. Malformed JSON or a wrong member throws InputError
// starting with the operation's name ("M_Alert.IService.CmdRaiseAlarm: Condition.Foo: no such member ...").
void messageFromArguments(const catalog::OperationInfo& op, const std::string& arguments, void* data);

}  // namespace vantrel::tool
