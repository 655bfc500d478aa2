#include "Child.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

extern char** environ;

namespace vantrel::bench {

using Clock = std::chrono::steady_clock;

namespace {

Clock::time_point after(double seconds) {
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

Child::Child(const std::vector<std::string>& argv) : Child(argv, false) {}

Child Child::peer(const std::vector<std::string>& args) {
    std::vector<std::string> argv{"/proc/self/exe", "peer"};
    argv.insert(argv.end(), args.begin(), args.end());
    return Child(argv, true);
}

Child::Child(const std::vector<std::string>& argv, bool isPeer) : m_name(argv.at(0)), m_isPeer(isPeer) {
    if (isPeer) m_name = "vantrel-bench";
    for (std::size_t i = 1; i < argv.size() && i < 3; ++i) m_name += " " + argv[i];
    // Close-on-exec: a child started later must not hold this one's stdin open (it would never see its end).
    int toChild[2], fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    if (pipe2(fromChild, O_CLOEXEC) != 0) {
        close(toChild[0]);
        close(toChild[1]);
        throw std::runtime_error("pipe failed");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, toChild[0], 0);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], 1);
    if (!isPeer) posix_spawn_file_actions_adddup2(&actions, fromChild[1], 2);
    std::vector<std::string> args = argv;
    std::vector<char*> raw;
    for (auto& a : args) raw.push_back(a.data());
    raw.push_back(nullptr);
    const int rc = posix_spawn(&m_pid, raw[0], &actions, nullptr, raw.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(toChild[0]);
    close(fromChild[1]);
    m_in = toChild[1];
    m_out = fromChild[0];
    if (rc != 0) {
        close(m_in);
        close(m_out);
        throw std::runtime_error("cannot start " + m_name);
    }
    m_reader = std::thread([this] { readOutput(); });
}

Child::~Child() {
    if (!m_ended && m_isPeer) {
        closeInput();
        for (int i = 0; i < 200 && !m_ended; ++i) {
            if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) m_ended = true;
            else std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    if (!m_ended) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    if (m_in >= 0) close(m_in);
    m_reader.join();  // the pipe reaches its end once the child is gone
    close(m_out);
}

void Child::readOutput() {
    std::string pending;
    char chunk[4096];
    for (;;) {
        const ssize_t n = read(m_out, chunk, sizeof chunk);
        if (n <= 0) break;
        const auto now = Clock::now();
        pending.append(chunk, static_cast<std::size_t>(n));
        std::lock_guard<std::mutex> lock(m_mutex);
        for (std::size_t nl; (nl = pending.find('\n')) != std::string::npos; pending.erase(0, nl + 1))
            m_lines.push_back({now, pending.substr(0, nl)});
        m_changed.notify_all();
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!pending.empty()) m_lines.push_back({Clock::now(), pending});
    m_eof = true;
    m_changed.notify_all();
}

bool Child::next(const std::string& prefix, double seconds, std::string& line) {
    const auto deadline = after(seconds);
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        for (; m_next < m_lines.size(); ++m_next)
            if (m_lines[m_next].text.rfind(prefix, 0) == 0) {
                line = m_lines[m_next++].text;
                return true;
            }
        if (m_eof) return false;
        if (m_changed.wait_until(lock, deadline) == std::cv_status::timeout && m_next == m_lines.size()) return false;
    }
}

std::string Child::waitFor(const std::string& prefix, double seconds) {
    std::string line;
    if (next(prefix, seconds, line)) return line;
    throw std::runtime_error(m_name + ": no \"" + prefix + "\" within " + std::to_string(seconds) + " s; its output:" + output());
}

std::string Child::nextOrEmpty(const std::string& prefix, double seconds) {
    std::string line;
    if (next(prefix, seconds, line)) return line;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_eof) return "";
    }
    throw std::runtime_error(m_name + " ended unexpectedly; its output:" + output());
}

std::vector<Child::Line> Child::lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::string Child::output() const {
    std::string all;
    for (const Line& l : lines()) all += "\n  " + l.text;
    return all;
}

void Child::interrupt() { kill(m_pid, SIGINT); }

void Child::closeInput() {
    if (m_in >= 0) close(m_in);
    m_in = -1;
}

Child::End Child::finish(double seconds) {
    const auto deadline = after(seconds);
    for (;;) {
        int status = 0;
        rusage usage{};
        const pid_t done = wait4(m_pid, &status, WNOHANG, &usage);
        if (done == m_pid) {
            m_ended = true;
            {
                // The last lines may still be in the pipe: they are read before anyone looks at them.
                std::unique_lock<std::mutex> lock(m_mutex);
                m_changed.wait_until(lock, deadline, [this] { return m_eof; });
            }
            auto secondsOf = [](const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; };
            return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime)};
        }
        if (done < 0) throw std::runtime_error(m_name + ": wait4 failed");
        if (Clock::now() > deadline) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
            m_ended = true;
            throw std::runtime_error(m_name + " did not end within " + std::to_string(seconds) + " s; its output:" + output());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void say(const std::string& line) {
    static std::mutex mutex;
    std::lock_guard<std::mutex> lock(mutex);
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

void waitForStdinEof() {
    char buffer[64];
    while (read(0, buffer, sizeof buffer) > 0) {
    }
}

}  // namespace vantrel::bench
