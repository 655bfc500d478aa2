#pragma once
// Bad input (an unknown operation, malformed JSON, a value of the wrong type, an unreadable recording):
// the tool says what is wrong and exits with 2 before anything is sent or written.
#include <stdexcept>
#include <string>

namespace vantrel::tool {

class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace vantrel::tool
