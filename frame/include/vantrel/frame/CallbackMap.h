#pragma once
#include <map>
#include <string>
#include <vector>

#include "kelva/utils/Callback.h"

namespace vantrel {

// Operation name -> callbacks, each a kelva::utils::callback::Wrapper<Interface, parameter types...> of
// that operation. Owned by the application; must outlive the facade it is given to.
using CallbackMap = std::map<std::string, std::vector<kelva::utils::callback::Base*>>;

}  // namespace vantrel
