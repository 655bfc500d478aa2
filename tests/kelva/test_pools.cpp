// Topic pools of one actor: topic naming, and what writing through a pool or a writer does when
// there is no writer or no matched reader.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "KelvaTestTypes.h"
#include "kelva/access/TopicStrategyMapChars.h"
#include "kelva/actors/Session.h"
#include "kelva/actors/SessionImpl.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Support.h"

namespace {

using kelva::actors::Session;
using kelva::actors::SessionImpl;
using kelva::actors::SimpleActor;
using kelva::utils::log::Level;
using kelva_test_support::KeyedSample;
using kelva_test_support::plain;
using vantrel::test::LogCapture;

using Texts = std::vector<std::string>;

class Pools : public ::testing::Test {
protected:
    void SetUp() override {
        m_session = std::make_unique<Session>(vantrel::test::domainId(), kelva::config::Config{});
        m_actor = SessionImpl::getSessionImpl(*m_session)->createActor("pools", false, "M_Test");
    }
    void TearDown() override {
        m_actor.reset();
        m_session.reset();
    }

    std::unique_ptr<Session> m_session;
    std::shared_ptr<SimpleActor> m_actor;
};

TEST_F(Pools, TopicNamesDropTheConfiguredPrefixAndMapCharacters) {
    EXPECT_EQ(m_actor->writePool().getTopicName<kelva_test_Keyed>(), "kelva_test_Keyed");

    kelva::config::Config config;
    config.topicPrefix = "kelva_test::";
    Session prefixed(vantrel::test::domainId(), config);
    auto actor = SessionImpl::getSessionImpl(prefixed)->createActor("prefixed", false, "M_Test");
    EXPECT_EQ(actor->writePool().getTopicName<kelva_test_Keyed>(), "Keyed");
    EXPECT_EQ(actor->writePool().topic<kelva_test_Keyed>()->name(), "Keyed");

    EXPECT_EQ(kelva::access::TopicStrategyMapChars().get("M_Alert::IService::Cmd.a-b c"), "M_Alert_IService_Cmd_a_b_c");
}

TEST_F(Pools, WriteOrDisposeWithoutWriterLogsAndReturns) {
    auto& pool = m_actor->writePool();
    KeyedSample key("k", 0);
    const std::string noTopic = "TopicPoolWrite::writer: no topic in topic pool";
    const std::string noWriter = "TopicPoolWrite::writer: no writer in topic";
    auto errors = [](const std::function<void()>& call) {
        LogCapture log(Level::info);
        EXPECT_NO_THROW(call());
        EXPECT_TRUE(log.texts(Level::info).empty()) << "a write without writer reached one";
        return log.texts(Level::error);
    };
    EXPECT_EQ(errors([&] { pool.write(key.get(), true, false); }),
              (Texts{noTopic, "TopicPoolWrite::writeIntern: no writer in topic pool"}));
    EXPECT_EQ(errors([&] { pool.dispose(key.get()); }), (Texts{noTopic, "TopicPoolWrite::dispose: no writer in topic pool"}));

    pool.createTopicWrite<kelva_test_Keyed>();
    pool.createTopicWrite<kelva_test_Plain>();
    pool.stop();
    EXPECT_FALSE(pool.hasWriters());
    EXPECT_EQ(errors([&] { pool.write(plain(7), false, true); }),
              (Texts{noWriter, "TopicPoolWrite::writeIntern: no writer in topic pool"}));
    EXPECT_EQ(errors([&] { pool.dispose(key.get()); }), (Texts{noWriter, "TopicPoolWrite::dispose: no writer in topic pool"}));
    EXPECT_EQ(errors([&] { EXPECT_EQ(pool.writer<kelva_test_Plain>(), nullptr); }), (Texts{noWriter}));
    EXPECT_THROW(pool.createTopicWrite<kelva_test_Plain>(), std::logic_error);
}

TEST_F(Pools, ReadPoolRefusesReadersOnceStopped) {
    auto& pool = m_actor->readPool();
    pool.createTopicRead<kelva_test_Plain>([](const kelva_test_Plain&, const dds_sample_info_t&) {});
    pool.stop();
    EXPECT_FALSE(pool.hasReaders());
    EXPECT_THROW(pool.createTopicRead<kelva_test_Plain>([](const kelva_test_Plain&, const dds_sample_info_t&) {}),
                 std::logic_error);
}

TEST_F(Pools, UnconnectedWriterLogsOrThrowsOnlyWhenAsked) {
    auto& w = m_actor->writePool().createTopicWrite<kelva_test_Plain>();
    ASSERT_FALSE(w.connectState().isConnected());
    const std::string notConnected = "Writer not connected while sending (kelva_test::Plain).";
    LogCapture log(Level::info);

    EXPECT_NO_THROW(w.write(plain(1), false, false));
    EXPECT_EQ(log.texts(Level::info), (Texts{notConnected}));

    log.clear();
    EXPECT_NO_THROW(w.write(plain(2), true, false));
    EXPECT_TRUE(log.texts(Level::info).empty()) << "a quiet write logged";

    log.clear();
    try {
        w.write(plain(3), false, true);
        ADD_FAILURE() << "no exception for an unconnected writer asked to throw";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Service for Cmd is unavailable yet - try later.");
    }
    EXPECT_EQ(log.texts(Level::info), (Texts{notConnected}));

    log.clear();
    EXPECT_THROW(w.write(plain(4), true, true), std::runtime_error);
    EXPECT_TRUE(log.texts(Level::info).empty());

    // Through the pool the writer's exception passes unchanged, and the pool stays usable.
    EXPECT_THROW(m_actor->writePool().write(plain(5), true, true), std::runtime_error);
    EXPECT_NO_THROW(m_actor->writePool().write(plain(6), true, false));
}

}  // namespace
