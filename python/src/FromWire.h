#pragma once
// Wire C structs into Python values, through the catalogue's wire walk: instances of the generated value classes,
// IntEnum literals (a number without a literal stays an int), lists (an optional is a list of 0 or 1),
// bytes for a list of octets, str (UTF-8; bytes that are not UTF-8 are kept as surrogate escapes).
#include "PyRef.h"
#include "vantrel/catalog/Catalog.h"

namespace vantrel::python {

Ref structFromWire(const catalog::StructInfo& info, const void* wire);
// The arguments of a received operation in API order (without kelva_sending_actor), then the dispose
// flag where the operation has one.
Ref argumentsFromWire(const catalog::OperationInfo& operation, const void* message, bool dispose);

}  // namespace vantrel::python
