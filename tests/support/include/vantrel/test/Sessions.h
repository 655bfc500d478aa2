#pragma once
// Sessions (participants) on this process's domain: one made to measure, a GoogleTest fixture with one for a
// service and one for its clients, and a count of the domain's participants.
#include <dds/dds.h>
#include <gtest/gtest.h>

#include <memory>

#include "kelva/actors/Session.h"
#include "kelva/config/Config.h"
#include "vantrel/test/Support.h"

namespace vantrel::test {

inline std::shared_ptr<kelva::actors::Session> newSession(
    const kelva::config::Config& config = kelva::config::Config::ofProcess()) {
    return std::make_shared<kelva::actors::Session>(domainId(), config);
}

class TwoSessions : public ::testing::Test {
protected:
    std::shared_ptr<kelva::actors::Session> serviceSession = newSession();
    std::shared_ptr<kelva::actors::Session> clientSession = newSession();
};

// The DDS participants of `domain` in this process (counted up to 8).
inline int participantsOf(int domain) {
    dds_entity_t found[8];
    return dds_lookup_participant(static_cast<dds_domainid_t>(domain), found, 8);
}

}  // namespace vantrel::test
