#include "agent/Child.h"

#include "agent/Log.h"
#include "agent/Signals.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace agent {

namespace {

using std::chrono::seconds;

constexpr int kStopChild = SIGUSR1; ///< what ends the whole group must not cut a change short
constexpr seconds kPause{1};        ///< before what has died is started again
constexpr int kSilence = 6;         ///< beats, longer than a slow disk keeps anybody
constexpr int kStart = 24;          ///< likewise, before it is ready

} // namespace

bool Child::start() {
    const pid_t parent = getpid();
    std::array<int, 2> alive{};
    if (pipe2(alive.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    m_alive = alive[0];
    m_silence = 0;
    m_limit = kStart;
    m_process = fork();
    if (m_process != 0) {
        close(alive[1]);
        return running();
    }
    close(m_alive);
    const int stop = openSignals({kStopChild, SIGTERM, SIGINT, SIGHUP});
    prctl(PR_SET_NAME, m_name);       // as process lists show it
    prctl(PR_SET_PDEATHSIG, SIGKILL); // the journal tells what was under way
    if (getppid() != parent || stop < 0)
        _exit(1);
    // The parent alone says when to stop. The other signals stay blocked: a terminal sends them to
    // the whole group.
    narrowSignals(stop, kStopChild);
    std::exit(m_work(alive[1], stop));
}

bool Child::hear() {
    std::array<char, 64> signs{};
    if (!running() || read(m_alive, signs.data(), signs.size()) <= 0)
        return false;
    m_silence = 0;
    m_limit = kSilence;
    return true;
}

void Child::watch() {
    if (hear() || !running() || ++m_silence != m_limit)
        return;
    log(LOG_ERR, std::string(m_name) + " gives no sign of life and is killed");
    killNow();
}

void Child::killNow() const {
    if (running())
        kill(m_process, SIGKILL);
}

bool Child::hangs() const {
    return running() && m_silence >= m_limit;
}

void Child::forget() {
    close(std::exchange(m_alive, -1));
}

void Child::ended() {
    forget();
    m_process = 0;
    m_due = Clock::now() + kPause;
}

void Child::stop(seconds time) {
    if (!running())
        return;
    const auto now = Clock::now();
    if (m_killAt == Clock::time_point()) {
        m_killAt = now + time;
        kill(m_process, kStopChild);
    } else if (now >= m_killAt) {
        m_killAt = Clock::time_point::max();
        log(LOG_WARNING, std::string(m_name) + " does not stop and is killed");
        killNow();
    }
}

} // namespace agent
