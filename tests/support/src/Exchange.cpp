#include "vantrel/test/Exchange.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "vantrel/test/Support.h"

namespace vantrel::test {

Exchange::Exchange(std::string test) : m_test(std::move(test)) {
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

bool Exchange::step(const std::string& step) const {
    if (m_role == Role::Both) return true;
    const auto mark = std::filesystem::path(m_dir) / (m_test + "." + step);
    if (m_role == Role::Receive) {
        std::ofstream(mark).put('\n');
        return true;
    }
    return waitUntil([&] { return std::filesystem::exists(mark); }, bound());
}

std::chrono::milliseconds Exchange::bound() const {
    return m_role == Role::Both ? kWaitBound : std::chrono::milliseconds(60000);
}

void Exchange::report(int operations, int equal, int disposals) const {
    if (m_role != Role::Receive) return;
    std::cout << "[ exchange ] " << m_test << ": " << operations << " operations, " << equal << " equal, "
              << disposals << " disposals" << std::endl;
}

}  // namespace vantrel::test
