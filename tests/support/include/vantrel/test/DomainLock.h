#pragma once
// The DDS domain ids that test processes and the benchmark share out among themselves: an exclusive lock on
// one file per id, held until released or until the process ends (also when it crashes); ids whose ports
// another process has bound are skipped.
#include <cstdint>

namespace vantrel::test {

class DomainLock {
public:
    // DDS maps domain ids to port numbers; 0..230 is the range every configuration accepts. Domain 0 is
    // left to whatever else runs on the machine.
    static constexpr int kFirstDomain = 1;
    static constexpr int kLastDomain = 230;

    // Takes a domain no other holder has; throws when none is free. `inheritable`: the lock survives an
    // exec of this process (POSIX), so that a command started in its place holds it.
    static DomainLock take(bool inheritable = false);

    DomainLock(DomainLock&& other) noexcept : m_id(other.m_id), m_handle(other.m_handle) { other.m_handle = kNone; }
    ~DomainLock();  // releases the domain

    int id() const { return m_id; }

private:
    static constexpr std::intptr_t kNone = -1;
    DomainLock(int id, std::intptr_t handle) : m_id(id), m_handle(handle) {}
    int m_id;
    std::intptr_t m_handle;  // a file descriptor or a HANDLE
};

}  // namespace vantrel::test
