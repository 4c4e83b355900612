#include "agent/system/Program.h"

#include "agent/Log.h"
#include "agent/system/CommandLine.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace agent {

namespace {

constexpr std::size_t kMostOutput = 65536;
constexpr std::size_t kMostErrors = 1000;
constexpr std::chrono::milliseconds kLongestPause{50};
constexpr std::size_t kLongestLine = 200; ///< of what the log repeats

// As a shell ends where it could not run a program.
constexpr int kMayNotRun = 126;
constexpr int kNotFound = 127;

/// Takes in what has come; what is beyond the limit is dropped. @return whether more can come
bool take(int descriptor, std::string& text, std::size_t most) {
    std::array<char, 4096> piece{};
    const ssize_t size = read(descriptor, piece.data(), piece.size());
    if (size <= 0)
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    text.append(piece.data(), std::min(static_cast<std::size_t>(size), most - text.size()));
    return true;
}

} // namespace

Program::~Program() {
    if (m_process > 0)
        kill();
    for (const int descriptor : {m_output, m_errors, m_either})
        if (descriptor >= 0)
            close(descriptor);
}

/// @return the end for the program; -1 when there is none
int Program::openPipe(int& reading) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return -1;
    reading = ends[0];
    fcntl(reading, F_SETFL, O_NONBLOCK);
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    epoll_ctl(m_either, EPOLL_CTL_ADD, reading, &wanted);
    return ends[1];
}

bool Program::start(const std::string& commandLine) {
    auto words = CommandLine::parse(commandLine);
    if (!words) {
        log(LOG_ERR,
            "refused, no program with one argument: " + printable(commandLine, kLongestLine));
        return false;
    }
    m_either = epoll_create1(EPOLL_CLOEXEC);
    const int output = openPipe(m_output);
    const int errors = openPipe(m_errors);
    const bool started = output >= 0 && errors >= 0 && spawn(*words, output, errors);
    for (const int descriptor : {output, errors})
        if (descriptor >= 0)
            close(descriptor);
    return started;
}

/// @return false when there is no room for a process; one that can't be run has ended
bool Program::spawn(CommandLine& words, int output, int errors) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    const std::array<char*, 3> arguments = {words.program.data(), words.argument.data(), nullptr};
    const int error =
        posix_spawnp(&m_process, arguments[0], &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error == 0)
        return true;
    m_process = -1;
    m_said.errors = std::strerror(error);
    m_said.status = error == ENOENT ? kNotFound : kMayNotRun;
    return error != EAGAIN && error != ENOMEM;
}

std::optional<ProgramEnd> Program::collect() {
    if (m_process < 0) // it was never run
        return std::move(m_said);
    if (!m_outputEnded) {
        if (!take(m_errors, m_said.errors, kMostErrors))
            epoll_ctl(m_either, EPOLL_CTL_DEL, m_errors, nullptr);
        m_outputEnded = !take(m_output, m_said.output, kMostOutput);
        if (m_said.output.size() == kMostOutput) {
            kill();
            return ProgramEnd{"", m_said.errors, -1};
        }
    }
    int status = 0;
    if (!m_outputEnded || waitpid(m_process, &status, WNOHANG) == 0)
        return std::nullopt;
    m_process = -1;
    take(m_errors, m_said.errors, kMostErrors);
    m_said.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return std::move(m_said);
}

void Program::kill() {
    ::kill(-m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
    m_process = -1;
}

Clock::duration Program::pause() {
    // It has closed its output and has little left to do.
    const Clock::duration now = m_pause;
    m_pause = std::min<Clock::duration>(2 * m_pause, kLongestPause);
    return now;
}

} // namespace agent
