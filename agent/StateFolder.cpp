#include "agent/StateFolder.h"

#include "agent/Log.h"
#include "agent/system/Files.h"
#include "agent/system/Spawn.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kEnd{2}; ///< for another agent, or a killed client, to end
constexpr const char* kNet = "/net";
constexpr const char* kDev = "/dev";
constexpr int kOpenLock = O_RDWR | O_CREAT | O_NOFOLLOW;

constexpr std::chrono::milliseconds kPause{20};

std::string problem(const std::string& path) {
    return path + ": " + std::strerror(errno);
}

/// @return whether there is a folder now, and no link to one
bool makeFolder(const std::string& path) {
    struct stat state {};
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        return false;
    errno = ENOTDIR;
    return lstat(path.c_str(), &state) == 0 && S_ISDIR(state.st_mode);
}

/// Whose a file is that an earlier version has kept in the state folder itself.
const char* placeOf(const std::string& name) {
    if (name.rfind("change.journal", 0) == 0)
        return kDev;
    const bool ofTheEngine =
        name.rfind("corvantad.", 0) == 0 && fs::path(name).extension() == ".conf";
    for (const char* other : {"new", "cert_indexes", "told.states"})
        if (name == other)
            return kNet;
    return ofTheEngine ? kNet : nullptr;
}

/// Moves what an earlier version has left to where it is now. It was written last, whatever is
/// there.
/// @return what is wrong; empty when nothing is
std::string takeOver(const std::string& path) {
    bool moved = false;
    std::error_code failed;
    for (const auto& file : fs::directory_iterator(path, failed)) {
        const std::string name = file.path().filename();
        const char* const place = placeOf(name);
        if (place == nullptr)
            continue;
        const fs::path to = fs::path(path + place) / name;
        if (file.is_directory(failed))
            fs::remove_all(to, failed); // only an empty one would make room
        if (std::rename(file.path().c_str(), to.c_str()) != 0)
            return "cannot move " + problem(file.path());
        moved = true;
    }
    if (failed ||
        (moved && !(syncFolder(path + kDev) && syncFolder(path + kNet) && syncFolder(path))))
        return "cannot take over the state folder " + problem(path);
    return "";
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
    for (const auto end = Clock::now() + kEnd; flock(descriptor, LOCK_EX | LOCK_NB) != 0;) {
        if (Clock::now() >= end)
            return "another corvantad uses the state folder " + path;
        std::this_thread::sleep_for(kPause);
    }
    for (const char* place : {kNet, kDev})
        if (!makeFolder(path + place))
            return "cannot make the state folder " + problem(path + place);
    return takeOver(path);
}

std::string netFolder(const Options& options) {
    return options.state + kNet;
}

std::string devFolder(const Options& options) {
    return options.state + kDev;
}

int openClientLock(const Options& options) {
    const std::string name = devFolder(options) + "/clients.lock";
    const int descriptor = open(name.c_str(), kOpenLock | O_CLOEXEC, 0600);
    if (descriptor < 0)
        log(LOG_ERR, "cannot write to the state folder " + problem(name));
    return descriptor;
}

std::optional<int> awaitClients(const Options& options, int lock, System& system) {
    auto end = Clock::now() + options.clientLimit;
    bool killed = false;
    while (const auto client = lockHolder(lock)) {
        if (*client < 0) {
            log(LOG_ERR,
                std::string("cannot lock files of the state folder: ") + std::strerror(errno));
            return 1;
        }
        if (Clock::now() >= end) {
            if (std::exchange(killed, true)) {
                log(LOG_ERR, "a client of an earlier agent does not end");
                return 1;
            }
            log(LOG_WARNING, "a client of an earlier agent hangs and is killed");
            if (*client > 0)
                kill(getpgid(*client) == *client ? -*client : *client, SIGKILL);
            end = Clock::now() + kEnd;
        }
        if (system.wait({false, true, false, false}, system.now() + kPause).stop)
            return 0;
    }
    return std::nullopt;
}

} // namespace agent
