// The contract's names, fixed for every session of a process that loads this library: the wire types are
// VendorData::M_X::..., whose topics drop that prefix, and the state reports (IClient::Report...) reach
// readers that join late. A configuration file still overrides both.
#include "kelva/config/Config.h"

namespace {

[[maybe_unused]] const bool installed = [] {
    kelva::config::QosRule state;
    state.match = "*_IClient_Report*";
    state.durability = kelva::config::Durability::TransientLocal;
    state.historyDepth = 1;
    kelva::config::setProductDefaults({"VendorData::", {state}});
    return true;
}();

}  // namespace
