#include "agent/Supervisor.h"

#include "agent/Log.h"
#include "agent/Privileges.h"
#include "agent/ServiceManager.h"
#include "agent/Signals.h"

#include <csignal>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace agent {

namespace {

using std::chrono::seconds;

constexpr seconds kDevStops{16}; ///< a change that is under way ends first
constexpr seconds kNetStops{2};
constexpr int kLook = 100; ///< ms, while a child has to start or to stop in time

} // namespace

Supervisor::Supervisor(const Options& options, Net net, Dev dev)
    : m_options(options),
      m_net("corvantad-net",
            [this, net](int stop) {
                close(m_link[1]);
                return net(m_options, m_link[0], m_alive[1], stop);
            }),
      m_dev("corvantad-dev", [this, dev](int stop) {
          close(m_link[0]);
          return dev(m_options, m_link[1], stop);
      }) {}

int Supervisor::run() {
    if (!open())
        return m_result;
    do {
        awaitEvents();
        readSignals();
        readAlive();
        reap();
        startDue();
    } while (!stopChildren());
    log(LOG_INFO, "stopped");
    return m_result;
}

bool Supervisor::open() {
    const bool detached = m_options.foreground || m_background.goToBackground();
    m_signals = openSignals({SIGTERM, SIGINT, SIGHUP, SIGCHLD});
    // Packets, so that one that dies leaves no part of a message. The parent keeps both ends open:
    // a process that is started again finds its own as it was.
    if (!detached || m_signals < 0 ||
        socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_link.data()) != 0 ||
        pipe2(m_alive.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        fail("no descriptors");
    else if (!m_net.start())
        fail("no processes");
    return !m_stopping;
}

void Supervisor::awaitEvents() const {
    std::array<pollfd, 2> events{{{m_signals, POLLIN, 0}, {m_alive[0], POLLIN, 0}}};
    const bool timed = m_stopping || (m_ready && !(m_net.running() && m_dev.running()));
    poll(events.data(), events.size(), timed ? kLook : -1);
}

void Supervisor::readSignals() {
    signalfd_siginfo signal{};
    while (read(m_signals, &signal, sizeof signal) == sizeof signal)
        m_stopping = m_stopping || signal.ssi_signo != SIGCHLD;
}

void Supervisor::readAlive() {
    std::array<char, 64> bytes{};
    if (read(m_alive[0], bytes.data(), bytes.size()) <= 0 || m_stopping)
        return;
    if (!m_ready)
        becomeReady();
    else if (m_options.watchdogBeat)
        notifyServiceManager("WATCHDOG=1");
}

void Supervisor::becomeReady() {
    // Both processes are started again as their users are; for two users, that takes root.
    if ((m_options.netUser.empty() && !becomeDevUser(m_options)) || !m_dev.start()) {
        fail("the device process cannot be started");
        return;
    }
    m_ready = true;
    if (!m_options.foreground) {
        m_background.tellStarted();
        leaveTerminal();
    }
    log(LOG_INFO, "started");
    notifyServiceManager("READY=1");
}

/// Sees what has ended. One that ends by itself has logged why, and the agent ends with it.
void Supervisor::reap() {
    int status = 0;
    for (pid_t process; (process = waitpid(-1, &status, WNOHANG)) > 0;) {
        if (!m_net.is(process) && !m_dev.is(process))
            continue; // an orphan that was left to this process
        Child& child = m_net.is(process) ? m_net : m_dev;
        child.ended();
        if (m_stopping)
            continue;
        if (WIFEXITED(status)) {
            m_result = WEXITSTATUS(status);
            m_stopping = true;
            continue;
        }
        const std::string text =
            child.name() + std::string(" was ended by signal ") + std::to_string(WTERMSIG(status));
        if (m_ready)
            log(LOG_ERR, text + " and is started again");
        else
            fail(text);
    }
}

void Supervisor::startDue() {
    if (!m_ready || m_stopping)
        return;
    for (Child* child : {&m_net, &m_dev})
        if (child->due() && !child->start())
            child->ended(); // and tried again
}

/// Once the agent has to stop: the device process ends what is under way, then the other one goes.
/// @return whether both have ended
bool Supervisor::stopChildren() {
    if (!m_stopping)
        return false;
    if (!std::exchange(m_stopTold, true))
        notifyServiceManager("STOPPING=1");
    m_dev.stop(kDevStops);
    if (!m_dev.running())
        m_net.stop(kNetStops);
    return !m_dev.running() && !m_net.running();
}

void Supervisor::fail(const std::string& text) {
    log(LOG_ERR, text);
    m_result = 1;
    m_stopping = true;
}

} // namespace agent
