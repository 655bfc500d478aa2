#pragma once
// A GoogleTest fixture with two sessions (participants) on this process's domain: one for a service, one for
// its clients.
#include <gtest/gtest.h>

#include <memory>

#include "kelva/actors/Session.h"
#include "vantrel/test/Support.h"

namespace vantrel::test {

class TwoSessions : public ::testing::Test {
protected:
    std::shared_ptr<kelva::actors::Session> serviceSession = std::make_shared<kelva::actors::Session>(domainId());
    std::shared_ptr<kelva::actors::Session> clientSession = std::make_shared<kelva::actors::Session>(domainId());
};

}  // namespace vantrel::test
