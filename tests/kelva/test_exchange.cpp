// Two sessions of one process exchanging samples over loopback through their actors' topic pools: delivery
// on the dispatcher thread, one handler at a time per session, connection state, and no reader left behind
// when many are ready at once (keyed disposal and the first-write wait: the frame's and the modules' tests).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "KelvaTestTypes.h"
#include "kelva/actors/Session.h"
#include "kelva/actors/SessionImpl.h"
#include "vantrel/test/Support.h"

namespace {

using namespace std::chrono_literals;
using kelva::actors::Session;
using kelva::actors::SessionImpl;
using kelva::actors::SimpleActor;
using kelva_test_support::KeyedCopy;
using kelva_test_support::KeyedSample;
using kelva_test_support::plain;
using vantrel::test::waitUntil;

constexpr int kMatchMs = 10000;

// A writing session and a reading session on this process's domain.
class Exchange : public ::testing::Test {
protected:
    void SetUp() override {
        m_writerSession = std::make_unique<Session>(vantrel::test::domainId(), kelva::config::Config{});
        m_readerSession = std::make_unique<Session>(vantrel::test::domainId(), kelva::config::Config{});
    }
    void TearDown() override {
        m_readerSession.reset();
        m_writerSession.reset();
    }

    std::shared_ptr<SessionImpl> writerImpl() { return SessionImpl::getSessionImpl(*m_writerSession); }
    std::shared_ptr<SessionImpl> readerImpl() { return SessionImpl::getSessionImpl(*m_readerSession); }
    std::shared_ptr<SimpleActor> writerActor(const std::string& name = "writer") {
        return writerImpl()->createActor(name, false, "M_Test");
    }
    std::shared_ptr<SimpleActor> readerActor(const std::string& name = "reader") {
        return readerImpl()->createActor(name, false, "M_Test");
    }

    std::unique_ptr<Session> m_writerSession;
    std::unique_ptr<Session> m_readerSession;
};

TEST_F(Exchange, SamplesArriveAsSentOneHandlerAtATimeOnTheDispatcherThread) {
    // Two readers of two topics in one session, fed by two writer threads at once: if the session ran two
    // handlers at the same time, the in-handler counter would see the other one. Every sample arrives, as
    // sent, on the reading session's dispatcher thread.
    auto readerSession = readerImpl();
    std::atomic<int> offDispatcher{0};
    std::mutex mutex;
    std::vector<KeyedCopy> received;
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    std::atomic<int> keyedCount{0};
    std::atomic<int> plainCount{0};
    auto body = [&](std::atomic<int>& count) {
        if (inside.fetch_add(1) != 0) ++overlaps;
        if (!readerSession->dispatcher().onDispatcherThread()) ++offDispatcher;
        std::this_thread::sleep_for(1ms);  // widens the window in which an overlap would show
        inside.fetch_sub(1);
        ++count;
    };
    auto keyedReader = readerActor("keyedReader");
    auto plainReader = readerActor("plainReader");
    keyedReader->readPool().createTopicRead<kelva_test_Keyed>(
        [&](const kelva_test_Keyed& s, const dds_sample_info_t&) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                received.push_back(KeyedCopy::of(s));
            }
            body(keyedCount);
        });
    plainReader->readPool().createTopicRead<kelva_test_Plain>(
        [&](const kelva_test_Plain&, const dds_sample_info_t&) { body(plainCount); });

    auto writer = writerActor();
    auto& keyedWriter = writer->writePool().createTopicWrite<kelva_test_Keyed>();
    auto& plainWriter = writer->writePool().createTopicWrite<kelva_test_Plain>();
    ASSERT_TRUE(keyedWriter.waitForMatch(kMatchMs));
    ASSERT_TRUE(plainWriter.waitForMatch(kMatchMs));

    constexpr int kEach = 40;
    std::vector<KeyedCopy> sent;
    for (int i = 0; i < kEach; ++i) sent.push_back({"k" + std::to_string(i), i, "text " + std::to_string(i)});
    std::thread keyedThread([&] {
        for (const auto& s : sent) {
            KeyedSample sample(s.id, s.value, s.text);
            writer->writePool().write(sample.get(), true, false);
        }
    });
    std::thread plainThread([&] {
        for (int i = 0; i < kEach; ++i) writer->writePool().write(plain(i), true, false);
    });
    keyedThread.join();
    plainThread.join();

    ASSERT_TRUE(waitUntil([&] { return keyedCount.load() == kEach && plainCount.load() == kEach; }))
        << "keyed " << keyedCount.load() << ", plain " << plainCount.load();
    EXPECT_EQ(overlaps.load(), 0);
    EXPECT_EQ(offDispatcher.load(), 0) << "a data handler ran outside the session's dispatcher thread";
    // One writer's samples of different instances may be taken instance by instance: compare as sets.
    std::lock_guard<std::mutex> lock(mutex);
    std::sort(received.begin(), received.end());
    std::sort(sent.begin(), sent.end());
    EXPECT_EQ(received, sent);
}

TEST_F(Exchange, ConnectStateFollowsMatchingReaders) {
    auto writer = writerActor();
    auto& w = writer->writePool().createTopicWrite<kelva_test_Plain>();
    EXPECT_FALSE(w.connectState().isConnected()) << "connected with no reader in the domain";
    EXPECT_FALSE(writer->writePool().anyConnected());

    auto first = readerActor("first");
    auto second = readerActor("second");
    first->readPool().createTopicRead<kelva_test_Plain>([](const kelva_test_Plain&, const dds_sample_info_t&) {});
    second->readPool().createTopicRead<kelva_test_Plain>([](const kelva_test_Plain&, const dds_sample_info_t&) {});
    ASSERT_TRUE(w.waitForMatch(kMatchMs));
    EXPECT_TRUE(writer->writePool().anyConnected());
    ASSERT_TRUE(waitUntil([&] {
        dds_publication_matched_status_t status{};
        return dds_get_publication_matched_status(w.entity(), &status) == DDS_RETCODE_OK && status.current_count == 2;
    }));

    // One of two readers leaving keeps the topic connected.
    first->shutdown();
    ASSERT_TRUE(waitUntil([&] {
        dds_publication_matched_status_t status{};
        return dds_get_publication_matched_status(w.entity(), &status) == DDS_RETCODE_OK && status.current_count == 1;
    }));
    EXPECT_TRUE(w.connectState().isConnected());

    // The last one leaving takes it down.
    second->shutdown();
    EXPECT_TRUE(waitUntil([&] { return !w.connectState().isConnected(); }))
        << "still connected after the last reader left";
    EXPECT_FALSE(writer->writePool().anyConnected());
}

TEST_F(Exchange, EveryReaderIsServedWhenMoreConditionsTriggerThanOneWaitReports) {
    // Seventy readers become ready while the dispatcher is held in another handler; when it is let go,
    // one wait reports them all at once.
    constexpr int kReaders = 70;
    auto reader = readerActor();
    vantrel::test::Gate entered;
    vantrel::test::Gate release;
    reader->readPool().createTopicRead<kelva_test_Keyed>([&](const kelva_test_Keyed&, const dds_sample_info_t&) {
        entered.open();
        release.wait();
    });
    std::atomic<int> served{0};
    std::vector<dds_entity_t> readers;
    for (int i = 0; i < kReaders; ++i) {
        auto& r = reader->readPool().createTopicRead<kelva_test_Plain>(
            [&](const kelva_test_Plain& s, const dds_sample_info_t&) {
                if (s.Value == 7) ++served;
            });
        readers.push_back(r.entity());
    }

    auto writer = writerActor();
    auto& keyed = writer->writePool().createTopicWrite<kelva_test_Keyed>();
    auto& plainWriter = writer->writePool().createTopicWrite<kelva_test_Plain>();
    ASSERT_TRUE(keyed.waitForMatch(kMatchMs));
    ASSERT_TRUE(waitUntil([&] {
        dds_publication_matched_status_t status{};
        return dds_get_publication_matched_status(plainWriter.entity(), &status) == DDS_RETCODE_OK &&
               status.current_count == kReaders;
    }));

    KeyedSample hold("hold", 0);
    writer->writePool().write(hold.get(), true, false);
    ASSERT_TRUE(entered.wait());
    writer->writePool().write(plain(7), true, false);
    // Every reader holds the sample (reading leaves it for the handler's take) before the dispatcher goes on.
    const bool allHold = waitUntil([&] {
        for (dds_entity_t r : readers) {
            void* samples[1] = {nullptr};
            dds_sample_info_t infos[1];
            const dds_return_t n = dds_read(r, samples, infos, 1, 1);
            if (n > 0) dds_return_loan(r, samples, n);
            if (n != 1) return false;
        }
        return true;
    });
    release.open();
    ASSERT_TRUE(allHold);
    EXPECT_TRUE(waitUntil([&] { return served.load() == kReaders; })) << served.load() << " of " << kReaders;
}

}  // namespace
