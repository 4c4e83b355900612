#include "agent/Signals.h"

#include <csignal>

#include <sys/signalfd.h>

namespace agent {

int openSignals(std::initializer_list<int> wanted) {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGCHLD, SIG_DFL); // may have been left ignored, and then none comes
    sigset_t set;
    sigemptyset(&set);
    for (const int number : wanted)
        sigaddset(&set, number);
    sigprocmask(SIG_SETMASK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

void narrowSignals(int descriptor, int wanted) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, wanted);
    signalfd(descriptor, &set, 0);
}

} // namespace agent
