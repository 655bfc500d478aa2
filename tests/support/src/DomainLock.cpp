#include "vantrel/test/DomainLock.h"

#include <filesystem>
#include <stdexcept>
#include <string>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <vector>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#endif

namespace vantrel::test {

namespace {

// DDS maps domain d to the ports 7400 + 250 * d + 0..249.
bool inDomain(int port, int domain) { return port >= 7400 + 250 * domain && port <= 7400 + 250 * domain + 249; }

#ifdef _WIN32
// Whether any UDP socket of this machine (IPv4) is bound to a port of `domain`: a process outside the tests
// is using that domain.
bool domainPortsInUse(int domain) {
    ULONG size = 0;
    ::GetUdpTable(nullptr, &size, FALSE);
    std::vector<unsigned char> buffer(size + 1024);
    size = static_cast<ULONG>(buffer.size());
    auto* table = reinterpret_cast<MIB_UDPTABLE*>(buffer.data());
    if (::GetUdpTable(table, &size, FALSE) != NO_ERROR) return false;
    for (DWORD i = 0; i < table->dwNumEntries; ++i)
        if (inDomain(::ntohs(static_cast<u_short>(table->table[i].dwLocalPort)), domain)) return true;
    return false;
}

int processId() { return static_cast<int>(::GetCurrentProcessId()); }
std::filesystem::path lockFolder() { return std::filesystem::temp_directory_path() / "vantrel-test-domains"; }

// An exclusive lock on `path`, or kNone. (`inheritable` has no meaning here: Windows has no exec.)
std::intptr_t lockFile(const std::filesystem::path& path, bool) {
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return -1;
    OVERLAPPED whole{};
    if (::LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &whole))
        return reinterpret_cast<std::intptr_t>(file);
    ::CloseHandle(file);
    return -1;
}

void unlock(std::intptr_t handle) { ::CloseHandle(reinterpret_cast<HANDLE>(handle)); }
#else
bool domainPortsInUse(int domain) {
    for (const char* table : {"/proc/net/udp", "/proc/net/udp6"}) {
        std::ifstream in(table);
        std::string line;
        std::getline(in, line);  // header
        while (std::getline(in, line)) {
            // "  sl  local_address:port(hex) ..."
            const auto colon = line.find(':', line.find(':') + 1);
            if (colon == std::string::npos) continue;
            if (inDomain(static_cast<int>(std::strtol(&line[colon + 1], nullptr, 16)), domain)) return true;
        }
    }
    return false;
}

int processId() { return static_cast<int>(::getpid()); }
std::filesystem::path lockFolder() { return "/tmp/vantrel-test-domains"; }

std::intptr_t lockFile(const std::filesystem::path& path, bool inheritable) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | (inheritable ? 0 : O_CLOEXEC), 0666);
    if (fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

void unlock(std::intptr_t handle) { ::close(static_cast<int>(handle)); }
#endif

}  // namespace

// Tries from a pid-dependent start so that concurrent processes rarely contend for the same file.
DomainLock DomainLock::take(bool inheritable) {
    const auto dir = lockFolder();
    std::error_code ignored;
    std::filesystem::create_directories(dir, ignored);
    const int span = kLastDomain - kFirstDomain + 1;
    for (int i = 0; i < span; ++i) {
        const int domain = kFirstDomain + (processId() + i) % span;
        const std::intptr_t handle = lockFile(dir / (std::to_string(domain) + ".lock"), inheritable);
        if (handle == kNone) continue;
        if (!domainPortsInUse(domain)) return DomainLock(domain, handle);
        unlock(handle);
    }
    throw std::runtime_error("no free DDS domain id among " + std::to_string(kFirstDomain) + ".." +
                             std::to_string(kLastDomain) + " (locks under " + dir.string() + ")");
}

DomainLock::~DomainLock() {
    if (m_handle != kNone) unlock(m_handle);
}

}  // namespace vantrel::test
