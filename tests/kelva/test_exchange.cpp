// Two sessions of one process exchanging samples through their actors' topic pools (keyed disposal and the
// first-write wait: tests/frame).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "KelvaTestTypes.h"
#include "kelva/actors/SessionImpl.h"
#include "vantrel/test/Sessions.h"

namespace {

using namespace std::chrono_literals;
using kelva::actors::Session;
using kelva::actors::SessionImpl;
using kelva::actors::SimpleActor;
using kelva_test_support::Keyed;
using kelva_test_support::view;
using vantrel::test::Gate;
using vantrel::test::waitUntil;

constexpr int kMatchMs = 10000;

class Exchange : public ::testing::Test {
protected:
    static std::shared_ptr<SimpleActor> actorOf(const std::shared_ptr<Session>& session, const std::string& name) {
        return SessionImpl::getSessionImpl(*session)->createActor(name, false, "M_Test");
    }
    static int matched(dds_entity_t writer) {
        dds_publication_matched_status_t status{};
        return dds_get_publication_matched_status(writer, &status) == DDS_RETCODE_OK ? int(status.current_count) : -1;
    }

    std::shared_ptr<Session> m_writing = vantrel::test::newSession(kelva::config::Config{});
    std::shared_ptr<Session> m_reading = vantrel::test::newSession(kelva::config::Config{});
};

TEST_F(Exchange, SamplesArriveAsSentOneHandlerAtATimeEveryReadyReaderIsServedAndTeardownWaitsForAHandler) {
    auto writer = actorOf(m_writing, "writer");
    auto& keyedWriter = writer->writePool().createTopicWrite<kelva_test_Keyed>();
    auto& plainWriter = writer->writePool().createTopicWrite<kelva_test_Plain>();
    EXPECT_FALSE(plainWriter.connectState().isConnected()) << "connected with no reader in the domain";
    EXPECT_FALSE(writer->writePool().anyConnected());

    // Two readers of two topics in one session, fed by two writer threads at once: if the session ran two
    // handlers at the same time, the in-handler counter would see the other one. Every sample arrives, as
    // sent, on the reading session's dispatcher thread.
    auto readingImpl = SessionImpl::getSessionImpl(*m_reading);
    std::mutex mutex;
    std::vector<Keyed> received;
    std::atomic<int> offDispatcher{0}, inside{0}, overlaps{0}, keyedCount{0}, plainCount{0};
    auto body = [&](std::atomic<int>& count) {
        if (inside.fetch_add(1) != 0) ++overlaps;
        if (!readingImpl->dispatcher().onDispatcherThread()) ++offDispatcher;
        std::this_thread::sleep_for(1ms);  // widens the window in which an overlap would show
        inside.fetch_sub(1);
        ++count;
    };
    actorOf(m_reading, "keyedReader")
        ->readPool()
        .createTopicRead<kelva_test_Keyed>([&](const kelva_test_Keyed& s, const dds_sample_info_t&) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                received.push_back(kelva_test_support::copy(s));
            }
            body(keyedCount);
        });
    actorOf(m_reading, "plainReader")
        ->readPool()
        .createTopicRead<kelva_test_Plain>([&](const kelva_test_Plain&, const dds_sample_info_t&) { body(plainCount); });

    ASSERT_TRUE(keyedWriter.waitForMatch(kMatchMs));
    ASSERT_TRUE(plainWriter.waitForMatch(kMatchMs));
    constexpr int kEach = 40;
    std::vector<Keyed> sent;
    for (int i = 0; i < kEach; ++i) sent.emplace_back("k" + std::to_string(i), i, "text " + std::to_string(i));
    std::thread keyedThread([&] {
        for (const auto& s : sent) writer->writePool().write(view(s), true, false);
    });
    std::thread plainThread([&] {
        for (int i = 0; i < kEach; ++i) writer->writePool().write(kelva_test_Plain{i}, true, false);
    });
    keyedThread.join();
    plainThread.join();

    ASSERT_TRUE(waitUntil([&] { return keyedCount == kEach && plainCount == kEach; }))
        << "keyed " << keyedCount << ", plain " << plainCount;
    EXPECT_EQ(overlaps, 0);
    EXPECT_EQ(offDispatcher, 0) << "a data handler ran outside the session's dispatcher thread";
    for (const char* name : {"keyedReader", "plainReader"}) actorOf(m_reading, name)->shutdown();
    ASSERT_TRUE(waitUntil([&] { return matched(keyedWriter.entity()) == 0 && matched(plainWriter.entity()) == 0; }));
    // One writer's samples of different instances may be taken instance by instance: compare as sets (the
    // handlers are gone, and each pushed before it counted).
    std::sort(received.begin(), received.end());
    std::sort(sent.begin(), sent.end());
    EXPECT_EQ(received, sent);

    // Seventy readers of one actor become ready while the dispatcher is held in another actor's handler; when
    // it is let go, one wait reports them all at once.
    constexpr int kMany = 70;
    Gate entered[2], release[2];
    std::atomic<int> served{0}, holds{0};
    std::atomic<bool> handlerReturned{false};
    const auto serve = [&](const kelva_test_Plain& s, const dds_sample_info_t&) { served += s.Value == 7; };
    auto many = actorOf(m_reading, "many");
    std::vector<dds_entity_t> readers;
    for (int i = 0; i < kMany; ++i) readers.push_back(many->readPool().createTopicRead<kelva_test_Plain>(serve).entity());
    auto last = actorOf(m_reading, "last");
    last->readPool().createTopicRead<kelva_test_Plain>(serve);
    last->readPool().createTopicRead<kelva_test_Keyed>([&](const kelva_test_Keyed&, const dds_sample_info_t&) {
        const int hold = holds++;
        if (hold > 1) return;
        entered[hold].open();
        release[hold].wait();
        handlerReturned = hold == 1;
    });
    last.reset();  // the session alone holds it
    ASSERT_TRUE(waitUntil([&] { return matched(keyedWriter.entity()) == 1 && matched(plainWriter.entity()) == kMany + 1; }));
    EXPECT_TRUE(writer->writePool().anyConnected());

    const Keyed hold{"hold", 0, ""};
    writer->writePool().write(view(hold), true, false);
    ASSERT_TRUE(entered[0].wait());
    writer->writePool().write(kelva_test_Plain{7}, true, false);
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
    release[0].open();
    ASSERT_TRUE(allHold);
    EXPECT_TRUE(waitUntil([&] { return served == kMany + 1; })) << served << " of " << kMany + 1;

    // Some readers leaving keep the topic connected.
    many->shutdown();
    ASSERT_TRUE(waitUntil([&] { return matched(plainWriter.entity()) == 1; }));
    EXPECT_TRUE(plainWriter.connectState().isConnected());

    // Destroying the reading session waits for its running handler.
    writer->writePool().write(view(hold), true, false);
    ASSERT_TRUE(entered[1].wait()) << "the handler never ran";
    std::atomic<bool> destroyed{false}, handlerDoneAtDestruction{false};
    many.reset();
    std::thread destroyer([&] {
        m_reading.reset();
        handlerDoneAtDestruction = handlerReturned.load();
        destroyed = true;
    });
    std::this_thread::sleep_for(50ms);  // lets the destruction start while the handler is held
    EXPECT_FALSE(destroyed) << "the session was gone while its handler still ran";
    release[1].open();
    if (!waitUntil([&] { return destroyed.load(); })) {
        destroyer.detach();
        FAIL() << "destroying the session hangs after its handler returned";
    }
    destroyer.join();
    EXPECT_TRUE(handlerDoneAtDestruction);
    EXPECT_EQ(holds, 2);
    // The writer's side is unaffected and notices the last reader leaving.
    EXPECT_TRUE(waitUntil([&] { return !plainWriter.connectState().isConnected(); }))
        << "still connected after the last reader left";
    EXPECT_TRUE(waitUntil([&] { return !writer->writePool().anyConnected(); }));
}

}  // namespace
