#include "agent/StateFolder.h"

#include "agent/Log.h"
#include "agent/system/Files.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kEnd{2}; ///< for another agent, or a killed client, to end
constexpr int kOpenLock = O_RDWR | O_CREAT | O_NOFOLLOW;

/// Visits the entries of a folder, as far as they can be read: those of /proc can vanish at any
/// time.
template <class Do>
void forEachIn(const fs::path& folder, Do action) {
    std::error_code gone;
    for (fs::directory_iterator each(folder, gone), end; !gone && each != end; each.increment(gone))
        action(each->path());
}

/// Visits the other processes that have the file open.
template <class Do>
void forEachHolder(const struct stat& file, Do action) {
    forEachIn("/proc", [&](const fs::path& process) {
        const pid_t pid = static_cast<pid_t>(std::strtol(process.filename().c_str(), nullptr, 10));
        if (pid <= 0 || pid == getpid())
            return;
        bool holds = false;
        forEachIn(process / "fd", [&](const fs::path& descriptor) {
            struct stat open {};
            holds = holds || (stat(descriptor.c_str(), &open) == 0 && open.st_dev == file.st_dev &&
                              open.st_ino == file.st_ino);
        });
        if (holds)
            action(pid);
    });
}

enum class Lock { taken, busy, stopped };

constexpr std::chrono::milliseconds kPause{20};

/// @param pause  waits for a moment; @return whether to wait no longer
template <class Pause>
Lock lockWithin(int descriptor, std::chrono::seconds time, Pause pause) {
    for (const auto end = Clock::now() + time; flock(descriptor, LOCK_EX | LOCK_NB) != 0;) {
        if (Clock::now() >= end)
            return Lock::busy;
        if (pause())
            return Lock::stopped;
    }
    return Lock::taken;
}

std::string problem(const std::string& path) {
    return path + ": " + std::strerror(errno);
}

} // namespace

std::string prepareState(std::string& path) {
    path = fs::absolute(path).lexically_normal().string();
    if (mkdir(path.c_str(), 0700) == 0)
        syncFolder(path + "/.."); // as far as this user may
    else if (errno != EEXIST)
        return "cannot make the state folder " + problem(path);
    const std::string name = path + "/agent.lock";
    const int descriptor = open(name.c_str(), kOpenLock | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return "cannot write to the state folder " + problem(name);
    const auto sleep = [] { return std::this_thread::sleep_for(kPause), false; };
    if (lockWithin(descriptor, kEnd, sleep) != Lock::taken)
        return "another corvantad uses the state folder " + path;
    return "";
}

std::optional<int> awaitClients(const Options& options, System& system) {
    const std::string name = options.state + "/clients.lock";
    // Without close-on-exec: clients hold it too.
    const int descriptor = open(name.c_str(), kOpenLock, 0600);
    struct stat file {};
    if (descriptor < 0 || fstat(descriptor, &file) != 0) {
        log(LOG_ERR, "cannot write to the state folder " + problem(name));
        return 1;
    }
    const auto sleep = [&] { // which shows life
        return system.wait({false, true, false, false}, system.now() + kPause).stop;
    };
    Lock lock = lockWithin(descriptor, options.clientLimit, sleep);
    if (lock == Lock::busy) {
        log(LOG_WARNING, "a client of an earlier agent hangs and is killed");
        forEachHolder(file, [](pid_t pid) { kill(pid, SIGKILL); });
        lock = lockWithin(descriptor, kEnd, sleep);
    }
    if (lock == Lock::busy)
        log(LOG_ERR, "a client of an earlier agent does not end");
    return lock == Lock::taken ? std::nullopt : std::optional<int>(lock == Lock::stopped ? 0 : 1);
}

} // namespace agent
