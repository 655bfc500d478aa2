#pragma once
// The operations the receive-path fuzz target feeds (generated from idl/ into FuzzCatalog.cpp).
#include <dds/dds.h>

#include <memory>
#include <vector>

#include "kelva/actors/Session.h"

namespace vantrel::fuzz {

struct Operation {
    const char* name;    // "M_Alert.IService.CmdRaiseAlarm"
    const char* topic;   // "M_Alert_IService_CmdRaiseAlarm"
    const dds_topic_descriptor_t* descriptor;
};

// Every operation of every module, in module and declaration order.
const std::vector<Operation>& operations();

// Creates, on `session`, a Service and a Client of every module that read all their operations with the
// interfaces' default bodies as implementation; `keep` owns them.
void createReceivers(const std::shared_ptr<kelva::actors::Session>& session, std::vector<std::shared_ptr<void>>& keep);

}  // namespace vantrel::fuzz
