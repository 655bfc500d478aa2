#pragma once
// A two-sided test (one side sends, the other receives and checks) that runs in one process, or split over
// two processes, possibly on different platforms, that play one side each:
//   VANTREL_EXCHANGE_ROLE=send|receive   the side this process plays (unset: both)
//   VANTREL_EXCHANGE_DIR=<folder>        a folder both processes see, where the receiving side marks the
//                                        steps it has reached and the sending side waits for them
// Both processes run the same tests in the same order on the same DDS domain (KELVA_TEST_DOMAIN).
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "vantrel/test/Support.h"

namespace vantrel::test {

class Exchange {
public:
    explicit Exchange(std::string test) : m_test(std::move(test)) {
        const char* role = std::getenv("VANTREL_EXCHANGE_ROLE");
        if (!role || !*role) return;
        const std::string text = role;
        if (text != "send" && text != "receive")
            throw std::invalid_argument("VANTREL_EXCHANGE_ROLE is neither send nor receive: " + text);
        m_role = text == "send" ? Role::Send : Role::Receive;
        const char* dir = std::getenv("VANTREL_EXCHANGE_DIR");
        if (!dir || !*dir) throw std::invalid_argument("VANTREL_EXCHANGE_ROLE needs VANTREL_EXCHANGE_DIR");
        m_dir = dir;
    }

    bool sends() const { return m_role != Role::Receive; }
    bool receives() const { return m_role != Role::Send; }

    // The receiving side has reached `step`: it marks it, and the sending side waits for the mark. True
    // at once in one process; false when the other process did not get there within bound().
    bool step(const std::string& step) const {
        if (m_role == Role::Both) return true;
        const auto mark = std::filesystem::path(m_dir) / (m_test + "." + step);
        if (m_role == Role::Send) return waitUntil([&] { return std::filesystem::exists(mark); }, bound());
        std::ofstream(mark).put('\n');
        return true;
    }

    // How long a side waits for the other: longer when the other is another process, which may run under
    // an emulation layer.
    std::chrono::milliseconds bound() const { return m_role == Role::Both ? kWaitBound : std::chrono::milliseconds(60000); }

    // The receiving side of a split exchange prints what it checked, for the run's figures.
    void report(int operations, int equal, int disposals) const {
        if (m_role != Role::Receive) return;
        std::cout << "[ exchange ] " << m_test << ": " << operations << " operations, " << equal << " equal, "
                  << disposals << " disposals" << std::endl;
    }

private:
    enum class Role { Both, Send, Receive };
    Role m_role = Role::Both;
    std::string m_test;
    std::string m_dir;
};

}  // namespace vantrel::test
