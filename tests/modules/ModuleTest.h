#pragma once
// Shared by the per-module tests: fresh sessions, a thread-safe record of received calls, the key members of
// a wire type, and the instance check of keyed reports.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kelva/access/TypeTraits.h"
#include "kelva/actors/Session.h"
#include "vantrel/test/Support.h"

namespace modtest {

using vantrel::test::waitUntil;

inline std::shared_ptr<kelva::actors::Session> newSession() {
    return std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
}

// The calls one operation received, in arrival order: its arguments as the parameter pack, and the dispose flag.
template <class Pack>
class Calls {
public:
    void add(const Pack& pack, bool disposed = false) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.emplace_back(pack, disposed);
    }
    // The packs that arrived with the given dispose flag.
    std::vector<Pack> received(bool disposed = false) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<Pack> out;
        for (const auto& call : m_calls)
            if (call.second == disposed) out.push_back(call.first);
        return out;
    }
    std::size_t count(bool disposed = false) const { return received(disposed).size(); }
    bool waitCount(std::size_t n, bool disposed = false) const {
        return waitUntil([&] { return count(disposed) >= n; });
    }
    bool waitFor(const Pack& pack, bool disposed = false) const {
        return waitUntil([&] {
            for (const auto& p : received(disposed))
                if (p == pack) return true;
            return false;
        });
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::pair<Pack, bool>> m_calls;
};

// The key members of a wire type, sorted by name.
template <class Wire>
std::vector<std::string> keysOf() {
    const dds_topic_descriptor_t* descriptor = kelva::access::TypeTraits<Wire>::descriptor();
    std::vector<std::string> keys;
    for (uint32_t i = 0; i < descriptor->m_nkeys; ++i) keys.emplace_back(descriptor->m_keys[i].m_name);
    std::sort(keys.begin(), keys.end());
    return keys;
}

// A keyed report: `a1` and `a2` share their key arguments and differ in data, `b` has other keys;
// `send(service, pack, dispose)` publishes one and `key(pack)` gives its key arguments. Checks that
// - a client that joins after the three writes gets the latest sample of each instance (a2 and b, not a1): the
//   data members are no keys and the key members are;
// - disposing a reaches a client present from the start as exactly one dispose, with a's keys;
// - a client that joins after that dispose gets b and no sample of a.
// Impl is the module's IClient implementation with a member `calls` of type Calls<Pack>.
template <class Service, class Client, class Impl, class Pack, class Send, class Key>
void expectSeparateInstances(Send send, Key key, const Pack& a1, const Pack& a2, const Pack& b) {
    ASSERT_EQ(key(a1), key(a2));
    ASSERT_NE(key(a1), key(b));
    ASSERT_NE(a1, a2);
    Impl early;
    auto earlyClient = Client::create(newSession(), "early", early);
    auto service = Service::createWriteOnly(newSession(), "service");
    send(service, a1, false);
    send(service, a2, false);
    send(service, b, false);
    ASSERT_TRUE(early.calls.waitFor(b));

    Impl late;
    auto lateClient = Client::create(newSession(), "late", late);
    ASSERT_TRUE(late.calls.waitFor(b)) << "the late client got no sample of b";
    const auto history = late.calls.received();
    EXPECT_EQ(history.size(), 2u) << "a late client must get one sample per instance";
    EXPECT_TRUE(late.calls.waitFor(a2, false)) << "the late client did not get the latest sample of a";

    send(service, a2, true);
    ASSERT_TRUE(early.calls.waitCount(1, true));
    const auto disposed = early.calls.received(true);
    ASSERT_EQ(disposed.size(), 1u);
    EXPECT_EQ(key(disposed.front()), key(a1)) << "the dispose carries other keys than a's";

    Impl afterDispose;
    auto thirdClient = Client::create(newSession(), "after-dispose", afterDispose);
    ASSERT_TRUE(afterDispose.calls.waitFor(b)) << "disposing a removed b";
    for (const auto& p : afterDispose.calls.received()) EXPECT_NE(key(p), key(a1)) << "a outlived its dispose";
}

}  // namespace modtest
