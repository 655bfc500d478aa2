#pragma once
// The text form of Python values, written exactly as M_X::toText writes the same value in C++ (the same
// ostream formatting of numbers, "Type::Literal" for enumerations, octets as raw characters). It reads
// the Python objects as they are: a member holding something unexpected is shown with str() instead of
// failing, so a value that would not convert can still be printed.
#include <ostream>
#include <string>

#include "PyRef.h"
#include "vantrel/catalog/Catalog.h"

namespace vantrel::python {

void printValue(std::ostream& out, const catalog::TypeInfo& type, PyObject* value);
void printStruct(std::ostream& out, const catalog::StructInfo& info, PyObject* value);

// The text form of an instance of a value class; TypeError for anything else.
Ref textOfValue(PyObject* value);
// The text form of an operation's wire message with `args` in API order and `sender` as kelva_sending_actor.
Ref textOfMessage(const catalog::OperationInfo& operation, PyObject* args, const char* sender);
// C++ text is bytes; Python's is str: decoded as UTF-8, a byte that is not shown as \xNN.
Ref decodeText(const std::string& text);

}  // namespace vantrel::python
