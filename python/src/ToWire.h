#pragma once
// Python values into wire C structs, through the catalogue's wire walk. Every type and bound is checked on the way:
// a value that cannot go on the wire raises TypeError or ValueError naming the operation and the member
// path ("M_Alert.CmdRaiseAlarm: Condition.SubsystemName: expected str, got int") before anything is sent.
// What the message points at (strings, sequence buffers) is copied into the writer's scratch memory, so
// the message stays valid without the GIL while the writer lives.
#include <cstdint>
#include <string>
#include <string_view>

#include "PyRef.h"
#include "vantrel/frame/Convert.h"
#include "vantrel/catalog/Catalog.h"
#include "vantrel/catalog/WireVisitor.h"

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
    // The wire struct of an instance of a value class.
    void* value(const catalog::StructInfo& info, PyObject* value);

    // The catalogue's wire walk reads Python values through these (see catalog/WireVisitor.h).
    using Value = PyObject*;
    static constexpr bool kReleases = false;  // the scratch memory outlives the message
    class Items;
    bool boolean(PyObject* value, const catalog::WirePath& path);
    template <class T>
    T number(PyObject* value, const catalog::WirePath& path, catalog::Kind kind);
    std::string_view text(PyObject* value, const catalog::WirePath& path);
    int32_t enumeration(const catalog::EnumInfo& info, PyObject* value, const catalog::WirePath& path);
    bool octets(const catalog::TypeInfo& type, PyObject* value, std::string_view& bytes);
    Items items(const catalog::TypeInfo& type, PyObject* value, const catalog::WirePath& path);
    template <class Fill>
    void structure(const catalog::StructInfo& info, PyObject* value, const catalog::WirePath& path, Fill fill);
    void* allocate(std::size_t bytes);
    char* copyText(std::string_view text);
    [[noreturn]] void fail(catalog::WireFault fault, const catalog::WirePath& path, const std::string& problem) const;

private:
    [[noreturn]] void expected(const char* what, PyObject* value, const catalog::WirePath& path) const;
    template <class T>
    T integer(PyObject* value, const catalog::WirePath& path, const char* typeName);
    double floating(PyObject* value, const catalog::WirePath& path, bool single);

    const char* m_module;
    const char* m_name;
    Ref m_encoded;  // the bytes the last text() returned, where the str had to be encoded
    frame::Scratch m_scratch;
};

// A snapshot of a list or tuple: Python code the conversion runs (__index__, __float__) cannot change
// what is converted.
class WireWriter::Items {
public:
    explicit Items(Ref tuple) : m_tuple(std::move(tuple)) {}
    std::size_t size() const { return static_cast<std::size_t>(PyTuple_GET_SIZE(m_tuple.get())); }
    PyObject* operator[](std::size_t i) const { return PyTuple_GET_ITEM(m_tuple.get(), static_cast<Py_ssize_t>(i)); }

private:
    Ref m_tuple;
};

}  // namespace vantrel::python
