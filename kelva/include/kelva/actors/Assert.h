#pragma once
// Toolkit assertions: logged at fatal level and thrown as std::logic_error, never compiled out.
#include <stdexcept>
#include <string>

#include "kelva/utils/Log.h"

namespace kelva::actors::detail {

[[noreturn]] inline void assertionFailed(const char* condition, const char* file, int line, const char* text) {
    utils::log::fatal() << "Assertion " << "\"" << condition << "\"" << " failed in " << file << ":" << line << " :"
                        << text;
    throw std::logic_error(std::string(file) + ":" + std::to_string(line) + ": " + text);
}

}  // namespace kelva::actors::detail

#define KELVA_ASSERT(condition, text) \
    ((condition) ? (void)0 : ::kelva::actors::detail::assertionFailed(#condition, __FILE__, __LINE__, text))
