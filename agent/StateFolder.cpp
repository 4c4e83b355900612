#include "agent/StateFolder.h"

#include "agent/Log.h"
#include "agent/system/Files.h"
#include "agent/system/Spawn.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>
#include <utility>

#include <dirent.h>
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

using Folder = std::unique_ptr<DIR, int (*)(DIR*)>;

/// @return null, with errno, where there is none
Folder openFolder(int parent, const std::string& name, int flags) {
    const int descriptor = openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags);
    return {descriptor < 0 ? nullptr : fdopendir(descriptor), closedir};
}

/// Does something with each name in a folder, as long as it can. @return whether it always could
template <class Do>
bool forEach(const Folder& folder, Do what) {
    for (;;) {
        errno = 0;
        const dirent* const each = readdir(folder.get());
        if (each == nullptr)
            return errno == 0;
        if (const std::string name = each->d_name; name != "." && name != ".." && !what(name))
            return false;
    }
}

/// Removes a file, or a folder and all in it.
bool removeAll(int parent, const std::string& name) {
    if (unlinkat(parent, name.c_str(), 0) == 0)
        return true;
    if (errno != EISDIR)
        return false;
    const Folder folder = openFolder(parent, name, O_NOFOLLOW);
    const auto remove = [&](const std::string& in) { return removeAll(dirfd(folder.get()), in); };
    return folder && forEach(folder, remove) && unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0;
}

/// Moves a file, or a folder, to the place of one with its name.
bool move(int from, int to, const std::string& name) {
    const auto tryIt = [&] { return renameat(from, name.c_str(), to, name.c_str()) == 0; };
    if (tryIt())
        return true;
    for (const int inTheWay : {ENOTEMPTY, EEXIST, ENOTDIR, EISDIR})
        if (errno == inTheWay)
            return removeAll(to, name) && tryIt();
    return false;
}

/// Moves what an earlier version has left to where it is now. It was written last, whatever is
/// there. Where root does that, these folders are other users', who may put a link in any place
/// meanwhile: so each is opened once, and nothing in it is done by its path.
/// @return what is wrong; empty when nothing is
std::string takeOver(const std::string& path) {
    const Folder state = openFolder(AT_FDCWD, path, 0);
    const int from = state ? dirfd(state.get()) : -1;
    const Folder net = openFolder(from, std::string(".") + kNet, O_NOFOLLOW);
    const Folder dev = openFolder(from, std::string(".") + kDev, O_NOFOLLOW);
    if (!state || !net || !dev)
        return "cannot open the state folder " + problem(path);
    bool moved = false;
    const bool all = forEach(state, [&](const std::string& name) {
        const char* const place = placeOf(name);
        moved = moved || place != nullptr;
        return place == nullptr || move(from, dirfd((place == kNet ? net : dev).get()), name);
    });
    if (!all)
        return "cannot move what an earlier version has left in " + problem(path);
    for (const Folder* const each : {&net, &dev, &state})
        if (moved && fsync(dirfd(each->get())) != 0)
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
