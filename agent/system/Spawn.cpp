#include "agent/system/Spawn.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string_view>

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent {

namespace {

constexpr const char* kDefaultPath = "/usr/bin:/bin"; ///< where there is no PATH

struct flock wholeFile(short type) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock;
}

[[noreturn, gnu::no_sanitize_address]] void giveUp(std::string_view text, int status) {
    [[maybe_unused]] const auto size = write(STDERR_FILENO, text.data(), text.size());
    _exit(status);
}

/// The new process, up to the program: it has the memory of its parent, which waits meanwhile, and
/// may call nothing that changes that. The sanitizer would keep the marks of a function that never
/// returns on the stack that the next one gets.
[[gnu::no_sanitize_address]] int begin(void* data) {
    const auto& what = *static_cast<const Spawn*>(data);
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    for (int number = 1; number < _NSIG; ++number)
        sigaction(number, &byDefault, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setpgid(0, 0);
    dup2(what.output, STDOUT_FILENO);
    dup2(what.errors, STDERR_FILENO);
    if (what.lock >= 0) {
        struct flock lock = wholeFile(F_WRLCK);
        if (fcntl(what.lock, F_SETFD, 0) != 0 || fcntl(what.lock, F_SETLK, &lock) != 0)
            giveUp("the state folder's lock cannot be taken", kMayNotRun);
    }
    execve(what.file, what.arguments, environ);
    if (errno == ENOENT)
        giveUp("its interpreter is missing", kNotFound);
    giveUp(errno == ENOEXEC ? "it is no program for this system, and names no interpreter"
                            : "it cannot be executed",
           kMayNotRun);
}

} // namespace

ProgramFile ProgramFile::find(const std::string& name) {
    const char* const variable = std::getenv("PATH");
    const std::string path = variable != nullptr ? variable : kDefaultPath;
    std::istringstream folders(path);
    ProgramFile found{"", name + ": not found in PATH " + path, kNotFound};
    for (std::string file; std::getline(folders, file, ':');) {
        file += (file.empty() ? "./" : "/") + name;
        struct stat state {};
        if (stat(file.c_str(), &state) != 0 || !S_ISREG(state.st_mode))
            continue;
        if (access(file.c_str(), X_OK) == 0)
            return {file, "", 0};
        found.why = file + ": may not be run by this user";
        found.status = kMayNotRun;
    }
    return found;
}

pid_t spawn(const Spawn& what) {
    alignas(16) static std::array<char, 32768> stack; // one starts at a time
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before); // no handler of this process runs in that one
    const pid_t process = clone(begin, stack.data() + stack.size(),
                                CLONE_VM | CLONE_VFORK | SIGCHLD, const_cast<Spawn*>(&what));
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return process;
}

std::optional<pid_t> lockHolder(int lock) {
    struct flock wanted = wholeFile(F_WRLCK);
    if (fcntl(lock, F_GETLK, &wanted) != 0)
        return -1;
    if (wanted.l_type == F_UNLCK)
        return std::nullopt;
    return wanted.l_pid;
}

void settleDescriptors() {
    int opened = 0;
    while (opened >= 0 && opened <= STDERR_FILENO)
        opened = open("/dev/null", O_RDWR);
    close(opened);
    std::error_code none;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd", none)) {
        const auto descriptor =
            static_cast<int>(std::strtol(each.path().filename().c_str(), nullptr, 10));
        if (descriptor > STDERR_FILENO)
            fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
}

} // namespace agent
