#pragma once
// The text form of Python values: converted to the wire and written by the generated printer of the wire
// type (the one M_X::toText and the DDS layer use), so Python shows exactly what C++ shows. A value that
// does not convert is still shown, member by member with str(): printing a wrongly filled value must not
// fail.
#include "PyRef.h"
#include "vantrel/catalog/Catalog.h"

namespace vantrel::python {

// The text form of an instance of a value class; TypeError for anything else.
Ref textOfValue(PyObject* value);
// The text form of an operation's wire message with `args` in API order and `sender` as kelva_sending_actor.
Ref textOfMessage(const catalog::OperationInfo& operation, PyObject* args, const char* sender);

}  // namespace vantrel::python
