#include "agent/Child.h"

#include "agent/Log.h"
#include "agent/Signals.h"

#include <csignal>
#include <cstdlib>
#include <string>

#include <sys/prctl.h>
#include <unistd.h>

namespace agent {

namespace {

using std::chrono::seconds;

constexpr int kStopChild = SIGUSR1; ///< what ends the whole group must not cut a change short
constexpr seconds kPause{1};        ///< before what has died is started again

} // namespace

bool Child::start() {
    const pid_t parent = getpid();
    m_process = fork();
    if (m_process != 0)
        return running();
    const int stop = openSignals({kStopChild, SIGTERM, SIGINT, SIGHUP});
    prctl(PR_SET_NAME, m_name);       // as process lists show it
    prctl(PR_SET_PDEATHSIG, SIGKILL); // the journal tells what was under way
    if (getppid() != parent || stop < 0)
        _exit(1);
    // The parent alone says when to stop. The other signals stay blocked: a terminal sends them to
    // the whole group.
    narrowSignals(stop, kStopChild);
    std::exit(m_work(stop));
}

void Child::ended() {
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
        kill(m_process, SIGKILL);
    }
}

} // namespace agent
