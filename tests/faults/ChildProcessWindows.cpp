#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "ChildProcess.h"

struct ChildProcess::Impl {
    PROCESS_INFORMATION process{};
    HANDLE in = nullptr;   // the child's stdin, our end
    HANDLE out = nullptr;  // the child's stdout, our end
    // A pipe cannot be waited on with a deadline: a thread reads it into `pending`.
    std::thread reader;
    std::mutex mutex;
    std::condition_variable arrived;
    std::string pending;
    bool ended = false;
};

namespace {

// One argument quoted as the C runtime's command-line parser reads it back.
std::string quoted(const std::string& arg) {
    if (!arg.empty() && arg.find_first_of(" \t\"") == std::string::npos) return arg;
    std::string out = "\"";
    std::size_t backslashes = 0;
    for (char c : arg) {
        if (c == '\\') {
            ++backslashes;
            continue;
        }
        out.append(c == '"' ? backslashes * 2 + 1 : backslashes, '\\');
        backslashes = 0;
        out += c;
    }
    out.append(backslashes * 2, '\\');
    return out + "\"";
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command) : m_impl(std::make_unique<Impl>()) {
    SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE childIn = nullptr, childOut = nullptr;
    if (!::CreatePipe(&childIn, &m_impl->in, &inherit, 0) || !::CreatePipe(&m_impl->out, &childOut, &inherit, 0))
        throw std::runtime_error("CreatePipe failed");
    ::SetHandleInformation(m_impl->in, HANDLE_FLAG_INHERIT, 0);
    ::SetHandleInformation(m_impl->out, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = childIn;
    startup.hStdOutput = childOut;
    startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    std::string line;
    for (const auto& arg : command) line += (line.empty() ? "" : " ") + quoted(arg);
    const BOOL started = ::CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                          &startup, &m_impl->process);
    ::CloseHandle(childIn);
    ::CloseHandle(childOut);
    if (!started) throw std::runtime_error("cannot start " + command.front());
    Impl* impl = m_impl.get();
    impl->reader = std::thread([impl] {
        char chunk[4096];
        DWORD n = 0;
        while (::ReadFile(impl->out, chunk, sizeof chunk, &n, nullptr) && n > 0) {
            std::lock_guard<std::mutex> lock(impl->mutex);
            impl->pending.append(chunk, n);
            impl->arrived.notify_all();
        }
        std::lock_guard<std::mutex> lock(impl->mutex);
        impl->ended = true;
        impl->arrived.notify_all();
    });
}

ChildProcess::~ChildProcess() {
    kill();
    ::CloseHandle(m_impl->in);
    if (m_impl->reader.joinable()) m_impl->reader.join();  // the pipe broke with the child
    ::CloseHandle(m_impl->out);
}

bool ChildProcess::readSome(std::string& buffer, Clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(m_impl->mutex);
    m_impl->arrived.wait_until(lock, deadline, [this] { return !m_impl->pending.empty() || m_impl->ended; });
    buffer += m_impl->pending;
    m_impl->pending.clear();
    return !(m_impl->ended && buffer.find('\n') == std::string::npos);
}

void ChildProcess::tell(const std::string& text) {
    const std::string data = text + "\n";
    DWORD written = 0;
    ::WriteFile(m_impl->in, data.data(), static_cast<DWORD>(data.size()), &written, nullptr);
}

void ChildProcess::kill() {
    if (!m_impl->process.hProcess) return;
    ::TerminateProcess(m_impl->process.hProcess, 9);
    wait();
}

void ChildProcess::wait() {
    if (!m_impl->process.hProcess) return;
    ::WaitForSingleObject(m_impl->process.hProcess, INFINITE);
    ::CloseHandle(m_impl->process.hProcess);
    ::CloseHandle(m_impl->process.hThread);
    m_impl->process = PROCESS_INFORMATION{};
}
