#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "vantrel/test/DomainLock.h"

namespace vantrel::test {

namespace {

// Whether any UDP socket of this machine (IPv4) is bound to a port of `domain` (7400 + 250 * domain + 0..249).
bool domainPortsInUse(int domain) {
    const int low = 7400 + 250 * domain, high = low + 249;
    ULONG size = 0;
    ::GetUdpTable(nullptr, &size, FALSE);
    std::vector<unsigned char> buffer(size + 1024);
    size = static_cast<ULONG>(buffer.size());
    auto* table = reinterpret_cast<MIB_UDPTABLE*>(buffer.data());
    if (::GetUdpTable(table, &size, FALSE) != NO_ERROR) return false;
    for (DWORD i = 0; i < table->dwNumEntries; ++i) {
        const int port = ::ntohs(static_cast<u_short>(table->table[i].dwLocalPort));
        if (port >= low && port <= high) return true;
    }
    return false;
}

}  // namespace

// Tries from a pid-dependent start so that concurrent processes rarely contend for the same file.
// (`inheritable` has no meaning here: Windows has no exec.)
DomainLock DomainLock::take(bool) {
    const auto dir = std::filesystem::temp_directory_path() / "vantrel-test-domains";
    std::error_code ignored;
    std::filesystem::create_directories(dir, ignored);
    const int span = kLastDomain - kFirstDomain + 1;
    const int start = static_cast<int>(::GetCurrentProcessId() % static_cast<DWORD>(span));
    for (int i = 0; i < span; ++i) {
        const int domain = kFirstDomain + (start + i) % span;
        const auto path = dir / (std::to_string(domain) + ".lock");
        HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE) continue;
        OVERLAPPED whole{};
        if (!::LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &whole) ||
            domainPortsInUse(domain)) {
            ::CloseHandle(file);
            continue;
        }
        return DomainLock(domain, reinterpret_cast<std::intptr_t>(file));
    }
    throw std::runtime_error("no free DDS domain id among " + std::to_string(kFirstDomain) + ".." +
                             std::to_string(kLastDomain) + " (locks under " + dir.string() + ")");
}

DomainLock::~DomainLock() {
    if (m_handle != kNone) ::CloseHandle(reinterpret_cast<HANDLE>(m_handle));  // releases the lock
}

}  // namespace vantrel::test
