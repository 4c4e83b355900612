#include "agent/Supervisor.h"

#include "agent/Log.h"
#include "agent/Privileges.h"
#include "agent/ServiceManager.h"
#include "agent/Signals.h"

#include <algorithm>
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

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kDevStops{16}; ///< a change that is under way ends first
constexpr seconds kNetStops{2};
constexpr milliseconds kLook{100}; ///< while a child has to start or to stop in time

} // namespace

Supervisor::Supervisor(const Options& options, Work net, Work dev)
    : m_options(options),
      m_net("corvantad-net",
            [this, net](int alive, int stop) {
                close(m_link[1]);
                m_dev.forget();
                return net(m_options, {m_link[0], alive, stop});
            }),
      m_dev("corvantad-dev", [this, dev](int alive, int stop) {
          close(m_link[0]);
          m_net.forget();
          return dev(m_options, {m_link[1], alive, stop});
      }) {}

int Supervisor::run() {
    if (!open())
        return m_result;
    do {
        awaitEvents();
        readSignals();
        becomeReady();
        watch();
        reap();
        startDue();
    } while (!stopChildren());
    log(LOG_INFO, "stopped");
    return m_result;
}

bool Supervisor::open() {
    const bool detached = m_options.foreground || m_background.goToBackground();
    m_signals = openSignals({SIGTERM, SIGINT, SIGHUP, SIGCHLD});
    if (!detached || m_signals < 0 || !openLink())
        fail("no descriptors");
    else if (!m_net.start())
        fail("no processes");
    return !m_stopping;
}

/// Packets, so that one that dies leaves no part of a message. The parent keeps both ends open: a
/// process that is started again finds its own as it was.
bool Supervisor::openLink() {
    for (const int end : m_link)
        if (end >= 0)
            close(end);
    return socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_link.data()) == 0;
}

void Supervisor::awaitEvents() const {
    std::array<pollfd, 2> events{
        {{m_signals, POLLIN, 0}, {m_ready ? -1 : m_net.alive(), POLLIN, 0}}};
    const bool soon = m_stopping || (m_ready && !(m_net.running() && m_dev.running()));
    const auto left = std::chrono::ceil<milliseconds>(m_beatDue - Clock::now());
    poll(events.data(), events.size(),
         static_cast<int>(std::max(soon ? std::min(left, kLook) : left, milliseconds(0)).count()));
}

void Supervisor::readSignals() {
    signalfd_siginfo signal{};
    while (read(m_signals, &signal, sizeof signal) == sizeof signal)
        m_stopping = m_stopping || signal.ssi_signo != SIGCHLD;
}

/// Once the network process is: its ports are open.
void Supervisor::becomeReady() {
    if (m_ready || m_stopping || !m_net.hear())
        return;
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

/// Sees to it once a beat that both processes move. The service manager is told so while they do,
/// or are started again; it is its turn when a process can't even be killed.
void Supervisor::watch() {
    const auto now = Clock::now();
    if (now < m_beatDue)
        return;
    m_beatDue = now + m_options.beat;
    if (!m_ready || m_stopping)
        return;
    watchLink();
    m_net.watch();
    m_dev.watch();
    if (watchdogLimit() && !m_net.hangs() && !m_dev.hangs())
        notifyServiceManager("WATCHDOG=1");
}

/// A process that was taken over can shut the link down for its successors too. They get a new one.
void Supervisor::watchLink() {
    std::array<pollfd, 2> ends{{{m_link[0], POLLRDHUP, 0}, {m_link[1], POLLRDHUP, 0}}};
    if (poll(ends.data(), ends.size(), 0) <= 0)
        return;
    log(LOG_ERR, "the link between the processes is shut down: both are started again");
    if (!openLink())
        fail("no descriptors");
    m_net.killNow();
    m_dev.killNow();
}

/// Sees what has ended. One that ends by itself has logged why, and the agent ends with it: as
/// failed in any case, so that the service manager starts it again.
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
            m_result = std::max(1, WEXITSTATUS(status));
            m_stopping = true;
            log(LOG_ERR, child.name() + std::string(" has ended: so does the agent"));
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
