#include "agent/Privileges.h"

#include "agent/Log.h"
#include "agent/StateFolder.h"

#include <cerrno>
#include <memory>
#include <optional>

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent {

namespace {

const std::string& netUser(const Options& options) {
    return options.netUser.empty() ? options.user : options.netUser;
}

/// What the system knows of a user; root for no name. Null where there is no such user.
const passwd* find(const std::string& name) {
    return name.empty() ? getpwuid(0) : getpwnam(name.c_str());
}

bool failed(const std::string& name) {
    log(LOG_ERR, "cannot run as user " + (name.empty() ? "root" : name));
    return false;
}

/// A descriptor that is closed with its owner.
struct Descriptor {
    explicit Descriptor(int opened) : number(opened) {}
    ~Descriptor() { close(number); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    const int number;
};

/// Makes a file, or a folder and all in it, a user's. Meanwhile a process of the user that owns the
/// folder around it may put a link in any place, so that nothing is done by its path. A file with
/// another name elsewhere may be somebody else's; one that is gone was replaced by its process.
bool give(int parent, const char* name, uid_t user, gid_t group) {
    const Descriptor file(openat(parent, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat state {};
    if (file.number < 0)
        return errno == ENOENT;
    if (fstat(file.number, &state) != 0 || (!S_ISDIR(state.st_mode) && state.st_nlink != 1) ||
        fchownat(file.number, "", user, group, AT_EMPTY_PATH) != 0)
        return false;
    if (!S_ISDIR(state.st_mode))
        return true;
    const std::unique_ptr<DIR, int (*)(DIR*)> list(
        fdopendir(openat(file.number, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)), closedir);
    bool given = list != nullptr;
    while (const dirent* const each = given ? readdir(list.get()) : nullptr)
        if (const std::string in = each->d_name; in != "." && in != "..")
            given = give(dirfd(list.get()), each->d_name, user, group) && given;
    return given;
}

/// Likewise one of the state folder's, as its process will look it up. @return the user's group
std::optional<gid_t> giveFolder(const std::string& path, const std::string& name) {
    const passwd* const user = find(name);
    struct stat state {};
    if (user != nullptr && give(AT_FDCWD, path.c_str(), user->pw_uid, user->pw_gid) &&
        lstat(path.c_str(), &state) == 0 && S_ISDIR(state.st_mode))
        return user->pw_gid;
    failed(name);
    return std::nullopt;
}

/// Whether there is somebody to give parts of the state to, and the right to do so.
bool canGive(const Options& options) {
    return geteuid() == 0 && !(options.user.empty() && options.netUser.empty());
}

bool become(const std::string& name) {
    if (name.empty())
        return true;
    const passwd* const user = find(name);
    if (user == nullptr)
        return failed(name);
    if (user->pw_uid == geteuid())
        return true;
    int signal = 0; // on the parent's death, which a change of user makes undone
    prctl(PR_GET_PDEATHSIG, &signal);
    const pid_t parent = getppid();
    if (initgroups(name.c_str(), user->pw_gid) != 0 || setgid(user->pw_gid) != 0 ||
        setuid(user->pw_uid) != 0)
        return failed(name);
    keepMemoryPrivate(); // which the kernel has undone, or not, by the machine's settings
    return signal == 0 || (prctl(PR_SET_PDEATHSIG, signal) == 0 && getppid() == parent);
}

} // namespace

void keepMemoryPrivate() {
    prctl(PR_SET_DUMPABLE, 0);
}

bool giveState(const Options& options) {
    if (!canGive(options))
        return true;
    const auto netGroup = giveFolder(netFolder(options), netUser(options));
    if (!netGroup || !giveFolder(devFolder(options), options.user))
        return false;
    const passwd* const user = find(options.user);
    // Who faces the network only gets through to its own folder.
    const Descriptor state(open(options.state.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool given = user != nullptr && fchown(state.number, user->pw_uid, *netGroup) == 0 &&
                       fchmod(state.number, options.netUser.empty() ? 0700 : 0710) == 0 &&
                       give(state.number, "agent.lock", user->pw_uid, gid_t(-1));
    return given || failed(options.user);
}

bool becomeDevUser(const Options& options) {
    return become(options.user);
}

bool becomeNetUser(const Options& options) {
    if (canGive(options) && !giveFolder(netFolder(options), netUser(options)))
        return false; // with what was written until now
    return become(netUser(options));
}

} // namespace agent
