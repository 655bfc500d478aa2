#pragma once
// Python exceptions that nobody can catch (raised by a callback on the dispatcher thread) go to the
// toolkit's logger: error level, with the traceback.
#include <string>

namespace vantrel::python {

// Logs the Python exception that is set, as "<what>:\n<traceback>", and clears it. Needs the GIL.
void logPythonError(const std::string& what);

}  // namespace vantrel::python
