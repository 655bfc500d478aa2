#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "ChildProcess.h"

extern char** environ;

struct ChildProcess::Impl {
    pid_t pid = 0;
    FILE* in = nullptr;
    int out = -1;
};

ChildProcess::ChildProcess(const std::vector<std::string>& command) : m_impl(std::make_unique<Impl>()) {
    int in[2], out[2];
    if (pipe(in) != 0 || pipe(out) != 0) throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, in[1]);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    std::vector<char*> argv;
    for (const auto& a : command) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const int rc = posix_spawnp(&m_impl->pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    if (rc != 0) {
        close(in[1]);
        close(out[0]);
        throw std::runtime_error("cannot start " + command.front());
    }
    m_impl->in = fdopen(in[1], "w");
    m_impl->out = out[0];
}

ChildProcess::~ChildProcess() {
    kill();
    if (m_impl->in) fclose(m_impl->in);
    ::close(m_impl->out);
}

bool ChildProcess::readSome(std::string& buffer, Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd fd{m_impl->out, POLLIN, 0};
    if (::poll(&fd, 1, static_cast<int>(left > 0 ? left : 0)) <= 0) return true;  // nothing yet
    char chunk[4096];
    const ssize_t n = ::read(m_impl->out, chunk, sizeof chunk);
    if (n <= 0) return false;
    buffer.append(chunk, static_cast<std::size_t>(n));
    return true;
}

void ChildProcess::tell(const std::string& text) {
    fputs((text + "\n").c_str(), m_impl->in);
    fflush(m_impl->in);
}

void ChildProcess::kill() {
    if (m_impl->pid <= 0) return;
    ::kill(m_impl->pid, SIGKILL);
    wait();
}

void ChildProcess::wait() {
    int status = 0;
    if (m_impl->pid > 0) waitpid(m_impl->pid, &status, 0);
    m_impl->pid = 0;
}
