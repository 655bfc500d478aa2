#pragma once
// Python values into wire C structs, driven by the catalogue. Every type and bound is checked on the way:
// a value that cannot go on the wire raises TypeError or ValueError naming the operation and the member
// path ("M_Alert.CmdRaiseAlarm: Condition.SubsystemName: expected str, got int") before anything is sent.
// What the message points at (strings, sequence buffers) is copied into the writer's scratch memory, so
// the message stays valid without the GIL while the writer lives.
#include <string>

#include "PyRef.h"
#include "vantrel/frame/Convert.h"
#include "vantrel/catalog/Catalog.h"

namespace vantrel::python {

class WireWriter {
public:
    // Error messages open with "<module>.<name>: " ("M_Alert.CmdRaiseAlarm: ").
    WireWriter(const char* module, const char* name) : m_module(module), m_name(name) {}
    WireWriter(const WireWriter&) = delete;
    WireWriter& operator=(const WireWriter&) = delete;

    // The wire message of `operation` with the arguments `args` (a tuple in API order) and `sender` as
    // kelva_sending_actor. Throws PythonError (TypeError / ValueError set) on a value that does not fit.
    void* message(const catalog::OperationInfo& operation, PyObject* args, const char* sender = "");

private:
    // Where a value sits: a member name or a sequence index below its parent.
    struct Path {
        const Path* parent;
        const char* member;  // null: `index` of a sequence
        Py_ssize_t index;
    };

    void structure(const catalog::StructInfo& info, void* wire, PyObject* value, const Path* path);
    void value(const catalog::TypeInfo& type, void* wire, PyObject* value, const Path* path);
    void sequence(const catalog::TypeInfo& type, void* wire, PyObject* value, const Path* path);
    void string(const catalog::TypeInfo& type, void* wire, PyObject* value, const Path* path);
    void enumeration(const catalog::TypeInfo& type, void* wire, PyObject* value, const Path* path);
    template <class T>
    void integer(void* wire, PyObject* value, const Path* path, const char* typeName);
    void floating(const catalog::TypeInfo& type, void* wire, PyObject* value, const Path* path);

    void* allocate(std::size_t bytes);
    char* copyText(const char* text, Py_ssize_t size);
    [[noreturn]] void fail(PyObject* exceptionType, const Path* path, const std::string& problem) const;
    [[noreturn]] void expected(const char* what, PyObject* value, const Path* path) const;

    const char* m_module;
    const char* m_name;
    frame::Scratch m_scratch;
};

}  // namespace vantrel::python
