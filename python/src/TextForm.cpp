#include "TextForm.h"

#include <sstream>
#include <string>
#include <vector>

#include "Registry.h"
#include "ToWire.h"

namespace vantrel::python {

using catalog::OperationInfo;
using catalog::StructInfo;

namespace {

// C++ text is bytes; Python's is str: decoded as UTF-8, a byte that is not shown as \xNN.
Ref decodeText(const std::string& text) {
    return Ref::checked(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "backslashreplace"));
}

void appendStr(std::string& out, PyObject* value) {
    Ref text = Ref::steal(PyObject_Str(value));
    Py_ssize_t size = 0;
    const char* utf8 = text ? PyUnicode_AsUTF8AndSize(text.get(), &size) : nullptr;
    if (!utf8) {
        PyErr_Clear();
        out += '?';
        return;
    }
    out.append(utf8, static_cast<std::size_t>(size));
}

// "[Name: value, ...]" with each value's str(), for what does not convert. `first` names the member
// shown first: the members of `info` from `first` on take the values in order.
Ref fallbackText(const StructInfo& info, uint32_t first, const char* firstText, PyObject* const* values) {
    std::string out = "[";
    for (uint32_t i = 0; i < info.count; ++i) {
        if (i) out += ", ";
        out += info.members[i].name;
        out += ": ";
        if (i < first) out += firstText;
        else if (values[i - first]) appendStr(out, values[i - first]);
        else out += "<not set>";
    }
    out += ']';
    return Ref::checked(PyUnicode_DecodeUTF8(out.data(), static_cast<Py_ssize_t>(out.size()), "backslashreplace"));
}

}  // namespace

Ref textOfValue(PyObject* value) {
    const StructInfo* info = structOfClass(reinterpret_cast<PyObject*>(Py_TYPE(value)));
    if (!info) {
        PyErr_Format(PyExc_TypeError, "text: expected an instance of a value class, got %s", Py_TYPE(value)->tp_name);
        throw PythonError{};
    }
    try {
        WireWriter writer(info->module, info->name);
        std::ostringstream out;
        info->print(out, writer.value(*info, value));
        return decodeText(out.str());
    } catch (const PythonError&) {
        PyErr_Clear();
    }
    const StructClass& cls = structClass(*info);
    std::vector<Ref> members;
    std::vector<PyObject*> values;
    for (uint32_t i = 0; i < info->count; ++i) {
        members.push_back(Ref::steal(PyObject_GetAttr(value, cls.attributes[i])));
        if (!members.back()) PyErr_Clear();
        values.push_back(members.back().get());
    }
    return fallbackText(*info, 0, "", values.data());
}

Ref textOfMessage(const OperationInfo& operation, PyObject* args, const char* sender) {
    const StructInfo& info = *operation.message;
    if (!PyTuple_Check(args) || PyTuple_GET_SIZE(args) != static_cast<Py_ssize_t>(info.count) - 1) {
        PyErr_Format(PyExc_TypeError, "%s.%s: takes %u arguments", operation.module, operation.name, info.count - 1);
        throw PythonError{};
    }
    try {
        WireWriter writer(operation.module, operation.name);
        std::ostringstream out;
        operation.print(out, writer.message(operation, args, sender));
        return decodeText(out.str());
    } catch (const PythonError&) {
        PyErr_Clear();
    }
    std::vector<PyObject*> values;
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(args); ++i) values.push_back(PyTuple_GET_ITEM(args, i));
    return fallbackText(info, 1, sender, values.data());
}

}  // namespace vantrel::python
