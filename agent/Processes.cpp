#include "agent/Processes.h"

#include "agent/Log.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kStopChild = SIGUSR1; ///< what ends the whole group must not cut a change short
constexpr seconds kPause{1};        ///< before what has died is started again
constexpr seconds kBackStops{16};   ///< a change that is under way ends first
constexpr seconds kFrontStops{2};

/// Tells a service manager that wants to know.
void tellServiceManager(const char* state) {
    const char* variable = std::getenv("NOTIFY_SOCKET");
    const std::string path = variable != nullptr ? variable : "";
    sockaddr_un address{};
    if (path.empty() || path.size() >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    if (path[0] == '@')
        address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return;
    const std::string text = state;
    sendto(descriptor, text.data(), text.size(), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&address), size);
    close(descriptor);
}

/// Signals that come through a descriptor. Those that end a program are ignored, which the clients
/// inherit; being blocked, they stay pending for the descriptor all the same.
int openSignals(std::initializer_list<int> wanted) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        signal(number, SIG_IGN);
    signal(SIGPIPE, [](int) {}); // not ignored, which would be inherited too
    signal(SIGCHLD, SIG_DFL);    // ignored, as whoever started this may have left it, none comes
    sigset_t set;
    sigemptyset(&set);
    for (const int number : wanted)
        sigaddset(&set, number);
    sigprocmask(SIG_SETMASK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// One of the two others.
class Child {
public:
    Child(const char* name, std::function<int(int stop)> work)
        : m_name(name), m_work(std::move(work)) {}

    const char* name() const { return m_name; }
    bool is(pid_t process) const { return process == m_process; }
    bool running() const { return m_process > 0; }
    bool due() const { return !running() && Clock::now() >= m_due; }

    /// @return whether there is such a process
    bool start() {
        const pid_t parent = getpid();
        m_process = fork();
        if (m_process != 0)
            return running();
        const int stop = openSignals({kStopChild, SIGTERM, SIGINT, SIGHUP});
        prctl(PR_SET_NAME, m_name);       // as process lists show it
        prctl(PR_SET_PDEATHSIG, SIGKILL); // what is under way is then the journal's matter
        if (getppid() != parent || stop < 0)
            _exit(1);
        // Only from the parent: the whole group may get the others.
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, kStopChild);
        signalfd(stop, &set, 0);
        std::exit(m_work(stop));
    }

    void ended() {
        m_process = 0;
        m_due = Clock::now() + kPause;
    }

    /// Has it stop, or ends it. The time counts from the first call.
    void stop(seconds time) {
        if (!running())
            return;
        if (m_killAt == Clock::time_point()) {
            m_killAt = Clock::now() + time;
            kill(m_process, kStopChild);
        } else if (Clock::now() >= m_killAt) {
            kill(m_process, SIGKILL);
        }
    }

private:
    const char* m_name;
    std::function<int(int stop)> m_work;
    pid_t m_process = 0;
    Clock::time_point m_due;    ///< when it is started again
    Clock::time_point m_killAt; ///< when it has had the time to stop
};

/// Goes on in a process of its own; the first one waits until the agent serves, or has failed.
/// @return where to write that it serves; -1 when that failed
int goToBackground() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return -1;
    const pid_t process = fork();
    if (process < 0)
        return -1;
    if (process == 0) {
        close(ends[0]);
        setsid();
        if (chdir("/") != 0) // whatever it was started in can be taken away
            _exit(1);
        return ends[1];
    }
    close(ends[1]);
    char byte = 0;
    _exit(read(ends[0], &byte, 1) == 1 ? 0 : 1);
}

int fail(const std::string& text) {
    log(LOG_ERR, text);
    return 1;
}

} // namespace

std::optional<std::chrono::microseconds> watchdogBeat() {
    constexpr int kBeats = 4; ///< in the time that the service manager waits for one
    const char* const limit = std::getenv("WATCHDOG_USEC");
    if (limit == nullptr)
        return std::nullopt;
    return std::chrono::microseconds(std::strtoll(limit, nullptr, 10) / kBeats);
}

void leaveTerminal() {
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing, descriptor);
    close(nothing);
    openLog(false);
}

int supervise(const Children& program) {
    const int serving = program.foreground ? -1 : goToBackground();
    std::array<int, 2> link{};
    std::array<int, 2> alive{};
    const int signals = openSignals({SIGTERM, SIGINT, SIGHUP, SIGCHLD});
    // Packets, so that one that dies leaves no part of a message. Both ends stay open here: what
    // is started again finds its own as it was.
    if ((!program.foreground && serving < 0) || signals < 0 ||
        socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, link.data()) != 0 ||
        pipe2(alive.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return fail("no descriptors");
    Child front("corvantad-net", [&](int stop) {
        close(link[1]);
        return program.front(link[0], alive[1], stop);
    });
    Child back("corvantad-dev", [&](int stop) {
        close(link[0]);
        return program.back(link[1], stop);
    });
    bool ready = false;
    bool stopping = false;
    bool told = false; // that it stops
    int result = 0;
    if (!front.start())
        return fail("no processes");

    for (;;) {
        std::array<pollfd, 2> events{{{signals, POLLIN, 0}, {alive[0], POLLIN, 0}}};
        const bool waiting = stopping || (ready && !(front.running() && back.running()));
        poll(events.data(), events.size(), waiting ? 100 : -1);

        signalfd_siginfo signal{};
        while (read(signals, &signal, sizeof signal) == sizeof signal) {
            if (signal.ssi_signo != SIGCHLD)
                stopping = true;
        }
        std::array<char, 64> bytes{};
        if (read(alive[0], bytes.data(), bytes.size()) > 0 && !stopping) {
            if (!ready) {
                if (!program.drop() || !back.start())
                    return fail("the device's side cannot be started");
                ready = true;
                if (!program.foreground) {
                    [[maybe_unused]] const auto size = write(serving, "", 1);
                    close(serving);
                    leaveTerminal();
                }
                log(LOG_INFO, "started");
                tellServiceManager("READY=1");
            } else if (watchdogBeat()) {
                tellServiceManager("WATCHDOG=1");
            }
        }
        int status = 0;
        for (pid_t process; (process = waitpid(-1, &status, WNOHANG)) > 0;) {
            if (!front.is(process) && !back.is(process))
                continue; // somebody else's, left to this one
            Child& child = front.is(process) ? front : back;
            child.ended();
            if (stopping)
                continue;
            if (WIFEXITED(status)) { // it has said why
                result = WEXITSTATUS(status);
                stopping = true;
            } else if (!ready) {
                result = fail(child.name() + std::string(" was ended by signal ") +
                              std::to_string(WTERMSIG(status)));
                stopping = true;
            } else {
                log(LOG_ERR, child.name() + std::string(" was ended by signal ") +
                                 std::to_string(WTERMSIG(status)) + " and is started again");
            }
        }
        if (stopping) {
            if (!std::exchange(told, true))
                tellServiceManager("STOPPING=1");
            back.stop(kBackStops);
            if (!back.running())
                front.stop(kFrontStops);
            if (!back.running() && !front.running())
                break;
        } else if (ready) {
            for (Child* child : {&front, &back})
                if (child->due() && !child->start())
                    child->ended(); // and tried again
        }
    }
    log(LOG_INFO, "stopped");
    return result;
}

} // namespace agent
