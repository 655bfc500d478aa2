#include <stdexcept>
#include <string>

#include "Bindings.h"
#include "kelva/utils/Log.h"

namespace py = pybind11;
namespace klog = kelva::utils::log;

namespace vantrel::python {
namespace {

klog::Level levelOf(const std::string& name) {
    klog::Level level;
    if (!klog::parseLevel(name, level))
        throw std::invalid_argument("unknown log level '" + name + "' (trace, debug, info, warn, error, fatal, off)");
    return level;
}

}  // namespace

void bindLog(py::module_& m) {
    m.def("log_write", [](const std::string& level, const std::string& line) { klog::Logger::write(levelOf(level), line); },
          py::arg("level"), py::arg("line"));
    m.def("log_is_enabled", [](const std::string& level) { return klog::Logger::isEnabled(levelOf(level)); },
          py::arg("level"));
    m.def("log_set_level", [](const std::string& level) { klog::Logger::setLevel(levelOf(level)); }, py::arg("level"));
    m.def("log_level", [] { return std::string(klog::levelName(klog::Logger::getHighestUsedLevel())); });
    m.def("log_set_sink", &klog::Logger::setSink, py::arg("sink"));
}

}  // namespace vantrel::python
