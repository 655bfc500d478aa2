#pragma once
// DDS domain ids held by this process for its life, taken the way the test suites take theirs: an
// exclusive lock on /tmp/vantrel-test-domains/<id>.lock, skipping ids whose ports another process has
// bound. A test run or a second benchmark at the same time never shares a domain with the holder.
#include <cstddef>
#include <vector>

namespace vantrel::bench {

class Domains {
public:
    // Throws when fewer than `count` ids are free.
    explicit Domains(int count);
    ~Domains();  // releases the locks
    Domains(const Domains&) = delete;
    Domains& operator=(const Domains&) = delete;

    int operator[](std::size_t i) const { return m_ids.at(i); }

private:
    std::vector<int> m_ids, m_fds;
};

}  // namespace vantrel::bench
