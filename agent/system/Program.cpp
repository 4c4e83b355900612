#include "agent/system/Program.h"

#include "agent/Log.h"
#include "agent/system/CommandLine.h"
#include "agent/system/Spawn.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace agent {

namespace {

constexpr std::size_t kMostOutput = 65536;
constexpr std::size_t kMostErrors = 1000;
constexpr std::chrono::milliseconds kLongestPause{50};
constexpr std::size_t kLongestLine = 200; ///< of what the log repeats

/// Readable when a process has ended; -1 where the kernel has no such descriptors.
int openProcess(pid_t process) {
#ifdef SYS_pidfd_open
    return static_cast<int>(syscall(SYS_pidfd_open, process, 0));
#else
    return -1;
#endif
}

/// Takes in all that has come; what is beyond the limit is dropped. @return whether more can come
bool take(int descriptor, std::string& text, std::size_t most) {
    std::array<char, 4096> piece{};
    for (;;) {
        const ssize_t size = read(descriptor, piece.data(), piece.size());
        if (size <= 0)
            return size < 0 && (errno == EAGAIN || errno == EINTR);
        const std::size_t room = most - text.size();
        text.append(piece.data(), std::min(static_cast<std::size_t>(size), room));
        if (room == 0)
            return true; // there may be no end to it
    }
}

} // namespace

Program::~Program() {
    if (m_process > 0)
        kill();
    for (const int descriptor : {m_output, m_errors, m_end, m_any})
        if (descriptor >= 0)
            close(descriptor);
}

void Program::watch(int descriptor) {
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    epoll_ctl(m_any, EPOLL_CTL_ADD, descriptor, &wanted);
}

/// @return the end for the program; -1 when there is none
int Program::openPipe(int& reading) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return -1;
    reading = ends[0];
    fcntl(reading, F_SETFL, O_NONBLOCK);
    watch(reading);
    return ends[1];
}

bool Program::start(const std::string& commandLine, int lock) {
    auto words = CommandLine::parse(commandLine);
    if (!words) {
        log(LOG_ERR,
            "refused, no program with one argument: " + printable(commandLine, kLongestLine));
        return false;
    }
    const ProgramFile program = ProgramFile::find(words->program);
    if (program.file.empty()) {
        m_said.status = program.status;
        return true;
    }
    m_any = epoll_create1(EPOLL_CLOEXEC);
    const int output = openPipe(m_output);
    const int errors = openPipe(m_errors);
    if (output >= 0 && errors >= 0) {
        const std::array<char*, 3> arguments = {words->program.data(), words->argument.data(),
                                                nullptr};
        m_process = spawn({program.file.c_str(), arguments.data(), output, errors, lock});
    }
    for (const int descriptor : {output, errors})
        if (descriptor >= 0)
            close(descriptor);
    if (m_process < 0)
        return false;
    m_end = openProcess(m_process);
    if (m_end >= 0)
        watch(m_end);
    return true;
}

void Program::takeFrom(int& descriptor, std::string& text, std::size_t most) {
    if (descriptor < 0 || take(descriptor, text, most))
        return;
    close(descriptor);
    descriptor = -1;
    m_pause = kShortestPause; // it has little left to do
}

std::optional<ProgramEnd> Program::collect() {
    if (m_process < 0) // it was never run
        return std::move(m_said);
    int status = 0;
    const bool ended = waitpid(m_process, &status, WNOHANG) != 0; // and then has said all
    takeFrom(m_errors, m_said.errors, kMostErrors);
    takeFrom(m_output, m_said.output, kMostOutput);
    const bool tooMuch = m_said.output.size() == kMostOutput;
    if (ended)
        m_process = -1;
    else if (tooMuch)
        kill();
    else
        return std::nullopt;
    if (tooMuch)
        return ProgramEnd{"", m_said.errors, -1};
    m_said.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return std::move(m_said);
}

void Program::kill() {
    ::kill(-m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
    m_process = -1;
}

Clock::time_point Program::lookAgain() {
    if (m_end >= 0)
        return Clock::time_point::max();
    const Clock::duration pause = m_pause;
    m_pause = std::min<Clock::duration>(2 * m_pause, kLongestPause);
    return Clock::now() + pause;
}

} // namespace agent
