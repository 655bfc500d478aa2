// Two sessions of one process exchanging samples over loopback through their actors' topic pools: delivery
// on the dispatcher thread, one handler at a time per session, connection state and disposal of keyed
// instances (the bounded first-write wait: the frame's AlertFirstWrite test).
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

TEST_F(Exchange, SamplesCrossSessionsAndArriveOnTheReadersDispatcherThread) {
    const auto testThread = std::this_thread::get_id();
    auto reader = readerActor();
    auto readerSession = readerImpl();
    std::mutex mutex;
    std::vector<KeyedCopy> received;
    std::atomic<int> offDispatcher{0};
    std::atomic<int> onTestThread{0};
    reader->readPool().createTopicRead<kelva_test_Keyed>([&](const kelva_test_Keyed& s, const dds_sample_info_t&) {
        if (!readerSession->dispatcher().onDispatcherThread()) ++offDispatcher;
        if (std::this_thread::get_id() == testThread) ++onTestThread;
        std::lock_guard<std::mutex> lock(mutex);
        received.push_back(KeyedCopy::of(s));
    });

    auto writer = writerActor();
    auto& w = writer->writePool().createTopicWrite<kelva_test_Keyed>();
    ASSERT_TRUE(w.waitForMatch(kMatchMs)) << "the reader of the other session never matched";

    std::vector<KeyedCopy> sent;
    for (int i = 0; i < 5; ++i) {
        const std::string id = "id" + std::to_string(i);
        const std::string text = "text of " + id;
        KeyedSample sample(id, 100 + i, text);
        writer->writePool().write(sample.get(), true, false);
        sent.push_back({id, 100 + i, text});
    }

    ASSERT_TRUE(waitUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return received.size() >= sent.size();
    }));
    std::vector<KeyedCopy> got;
    {
        std::lock_guard<std::mutex> lock(mutex);
        got = received;
    }
    // One writer's samples of different instances may be taken instance by instance: compare as sets.
    std::sort(got.begin(), got.end());
    std::sort(sent.begin(), sent.end());
    EXPECT_EQ(got, sent);
    EXPECT_EQ(offDispatcher.load(), 0) << "a data handler ran outside the session's dispatcher thread";
    EXPECT_EQ(onTestThread.load(), 0);
}

TEST_F(Exchange, HandlersOfOneSessionNeverRunConcurrently) {
    // Two readers of two topics in one session, fed by two writer threads at once: if the session ran two
    // handlers at the same time, the in-handler counter would see the other one.
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    std::atomic<int> keyedCount{0};
    std::atomic<int> plainCount{0};
    auto body = [&](std::atomic<int>& count) {
        if (inside.fetch_add(1) != 0) ++overlaps;
        std::this_thread::sleep_for(1ms);  // widens the window in which an overlap would show
        inside.fetch_sub(1);
        ++count;
    };
    auto keyedReader = readerActor("keyedReader");
    auto plainReader = readerActor("plainReader");
    keyedReader->readPool().createTopicRead<kelva_test_Keyed>(
        [&](const kelva_test_Keyed&, const dds_sample_info_t&) { body(keyedCount); });
    plainReader->readPool().createTopicRead<kelva_test_Plain>(
        [&](const kelva_test_Plain&, const dds_sample_info_t&) { body(plainCount); });

    auto writer = writerActor();
    auto& keyedWriter = writer->writePool().createTopicWrite<kelva_test_Keyed>();
    auto& plainWriter = writer->writePool().createTopicWrite<kelva_test_Plain>();
    ASSERT_TRUE(keyedWriter.waitForMatch(kMatchMs));
    ASSERT_TRUE(plainWriter.waitForMatch(kMatchMs));

    constexpr int kEach = 40;
    std::thread keyedThread([&] {
        for (int i = 0; i < kEach; ++i) {
            KeyedSample sample("k" + std::to_string(i), i);
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
}

TEST_F(Exchange, ConnectStateFollowsMatchingReaders) {
    auto writer = writerActor();
    auto& w = writer->writePool().createTopicWrite<kelva_test_Plain>();
    EXPECT_FALSE(w.connectState().isConnected()) << "connected with no reader in the domain";
    EXPECT_FALSE(writer->writePool().anyConnected());
    EXPECT_EQ(w.connectState().nameTopic(), "kelva_test_Plain");
    EXPECT_EQ(w.connectState().nameType(), "kelva_test::Plain");
    EXPECT_EQ(w.connectState().nameModule(), "M_Test");

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

TEST_F(Exchange, DisposeOfAKeyedInstanceReachesTheReaderAsDisposal) {
    auto reader = readerActor();
    std::mutex mutex;
    std::vector<KeyedCopy> data;
    struct Disposal {
        std::string id;
        dds_instance_state_t state;
        bool validData;
    };
    std::vector<Disposal> disposals;
    reader->readPool().createTopicRead<kelva_test_Keyed>(
        [&](const kelva_test_Keyed& s, const dds_sample_info_t&) {
            std::lock_guard<std::mutex> lock(mutex);
            data.push_back(KeyedCopy::of(s));
        },
        [&](const kelva_test_Keyed& s, const dds_sample_info_t& info) {
            std::lock_guard<std::mutex> lock(mutex);
            disposals.push_back({s.Id ? s.Id : "", info.instance_state, info.valid_data});
        });
    auto dataCount = [&] {
        std::lock_guard<std::mutex> lock(mutex);
        return data.size();
    };
    auto disposalCount = [&] {
        std::lock_guard<std::mutex> lock(mutex);
        return disposals.size();
    };

    auto writer = writerActor();
    auto& w = writer->writePool().createTopicWrite<kelva_test_Keyed>();
    ASSERT_TRUE(w.waitForMatch(kMatchMs));
    KeyedSample a1("A", 1, "first A"), b1("B", 1, "first B");
    writer->writePool().write(a1.get(), true, false);
    writer->writePool().write(b1.get(), true, false);
    // The data must be in before the disposal: a sample taken after its instance was disposed counts as
    // part of the disposal.
    ASSERT_TRUE(waitUntil([&] { return dataCount() == 2; }));

    KeyedSample keyOfA("A", 0);
    writer->writePool().dispose(keyOfA.get());
    ASSERT_TRUE(waitUntil([&] { return disposalCount() == 1; })) << "the disposal of A never arrived";

    KeyedSample b2("B", 2, "second B");
    writer->writePool().write(b2.get(), true, false);
    ASSERT_TRUE(waitUntil([&] { return dataCount() == 3; }));

    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(disposals.size(), 1u);
    EXPECT_EQ(disposals[0].id, "A");
    EXPECT_EQ(disposals[0].state, DDS_IST_NOT_ALIVE_DISPOSED);
    EXPECT_FALSE(disposals[0].validData);
    // The data handler saw the three writes and nothing of the disposal; B lives on.
    std::vector<KeyedCopy> expected{{"A", 1, "first A"}, {"B", 1, "first B"}, {"B", 2, "second B"}};
    std::vector<KeyedCopy> got = data;
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, expected);
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
