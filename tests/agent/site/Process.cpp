#include "tests/agent/site/Process.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

std::string output(const fs::path& folder, const std::string& command) {
    std::string text;
    FILE* pipe = popen(("cd " + folder.string() + " && " + command + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (std::size_t size; (size = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        text.append(buffer, size);
    pclose(pipe);
    return text;
}

Process::Process(const fs::path& folder, const std::string& command,
                 const std::function<void()>& prepare)
    : m_pid(fork()) {
    if (m_pid != 0)
        return;
    if (prepare)
        prepare();
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that is interrupted leaves nothing
    fs::current_path(folder);
    execl("/bin/sh", "sh", "-c", ("exec env " + command).c_str(), nullptr);
    _exit(127);
}

Process::~Process() {
    if (m_pid > 0)
        end(SIGKILL);
}

bool Process::running() const {
    siginfo_t ended{};
    return waitid(P_PID, static_cast<id_t>(m_pid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == 0;
}

int Process::end(int signal) {
    kill(signal == SIGKILL ? -m_pid : m_pid, signal);
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
