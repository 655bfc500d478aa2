#pragma once
// Helpers shared by the test binaries: the DDS domain of this test process, bounded polling, a one-shot
// gate to hold a thread at a known point, and the text of an expected exception.
#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <string>

namespace vantrel::test {

// How long a test waits for something that DDS does asynchronously (discovery, matching, delivery). A
// bound for a hang, not an expected duration: on a quiet loopback these take milliseconds.
inline constexpr std::chrono::milliseconds kWaitBound{10000};

// The DDS domain id of this test process: KELVA_TEST_DOMAIN if set, else one that no other test process on
// this machine holds and no other process has sockets on (a lock per domain id, held for the process's life).
int domainId();

// Calls `condition` every few milliseconds until it returns true or `bound` has passed; returns its last
// result.
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds bound = kWaitBound);

// A gate that starts closed; once opened it stays open.
class Gate {
public:
    void open() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    // Waits until the gate is open or `bound` has passed; returns whether it is open.
    bool wait(std::chrono::milliseconds bound = kWaitBound) const {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, bound, [this] { return m_open; });
    }

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    bool m_open = false;
};

// The text of the E that `call` throws, or "no exception" (any other exception passes through).
template <class E = std::exception>
std::string thrownText(const std::function<void()>& call) {
    try {
        call();
    } catch (const E& e) {
        return e.what();
    }
    return "no exception";
}

namespace detail {
// Allocates a domain as domainId() does, with the lock kept across exec: a command started in its place
// holds the domain for its life.
int allocateDomainForCommand();

// Checks that CYCLONEDDS_URI names one readable configuration file that contains "127.0.0.1". On failure
// returns false and says why in `why`.
bool loopbackConfigured(std::string& why);
}  // namespace detail

}  // namespace vantrel::test
