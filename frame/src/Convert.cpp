#include "vantrel/frame/Convert.h"

namespace vantrel::frame {

void refuse(const char* where, const std::string& what) {
    throw std::invalid_argument(std::string(where) + ": " + what + "; nothing was sent");
}

}  // namespace vantrel::frame
