#include "agent/Background.h"

#include "agent/Log.h"

#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace agent {

bool Background::goToBackground() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return false;
    const pid_t process = fork();
    if (process < 0)
        return false;
    if (process == 0) {
        close(ends[0]);
        setsid();
        if (chdir("/") != 0) // the folder that it was started in can be taken away
            _exit(1);
        m_starter = ends[1];
        return true;
    }
    close(ends[1]);
    char byte = 0;
    _exit(read(ends[0], &byte, 1) == 1 ? 0 : 1);
}

void Background::tellStarted() {
    [[maybe_unused]] const auto size = write(m_starter, "", 1);
    close(m_starter);
}

void leaveTerminal() {
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing, descriptor);
    close(nothing);
    openLog(false);
}

} // namespace agent
