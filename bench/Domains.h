#pragma once
// DDS domain ids held by the benchmark while a part runs, taken as the test suites take theirs
// (vantrel/test/DomainLock.h): a test run or a second benchmark at the same time never shares a domain.
#include <cstddef>
#include <vector>

#include "vantrel/test/DomainLock.h"

namespace vantrel::bench {

class Domains {
public:
    // Throws when fewer than `count` ids are free.
    explicit Domains(int count) {
        for (int i = 0; i < count; ++i) m_locks.push_back(test::DomainLock::take());
    }

    int operator[](std::size_t i) const { return m_locks.at(i).id(); }

private:
    std::vector<test::DomainLock> m_locks;  // released with the object
};

}  // namespace vantrel::bench
