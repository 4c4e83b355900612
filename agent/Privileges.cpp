#include "agent/Privileges.h"

#include "agent/Log.h"
#include "agent/StateFolder.h"

#include <cerrno>
#include <filesystem>

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent {

namespace {

namespace fs = std::filesystem;

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

/// Makes a folder and all in it a user's. A file with another name elsewhere may be somebody
/// else's; one that is gone by then was replaced by the process that it belongs to.
bool give(const std::string& folder, uid_t user, gid_t group) {
    std::error_code failed;
    bool given = lchown(folder.c_str(), user, group) == 0;
    for (fs::recursive_directory_iterator each(folder, failed), end; !failed && each != end;
         each.increment(failed)) {
        struct stat state {};
        errno = 0;
        const bool done = lstat(each->path().c_str(), &state) == 0 &&
                          (S_ISDIR(state.st_mode) || state.st_nlink == 1) &&
                          lchown(each->path().c_str(), user, group) == 0;
        given = given && (done || errno == ENOENT);
    }
    return given && !failed;
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
    return signal == 0 || (prctl(PR_SET_PDEATHSIG, signal) == 0 && getppid() == parent);
}

} // namespace

bool giveState(const Options& options) {
    if (geteuid() != 0 || (options.user.empty() && options.netUser.empty()))
        return true;
    const passwd* user = find(netUser(options));
    if (user == nullptr || !give(netFolder(options), user->pw_uid, user->pw_gid))
        return failed(netUser(options));
    const gid_t netGroup = user->pw_gid;
    user = find(options.user);
    if (user == nullptr || !give(devFolder(options), user->pw_uid, user->pw_gid))
        return failed(options.user);
    // Who faces the network only gets through to its own folder.
    const bool given = lchown(options.state.c_str(), user->pw_uid, netGroup) == 0 &&
                       chmod(options.state.c_str(), options.netUser.empty() ? 0700 : 0710) == 0 &&
                       lchown((options.state + "/agent.lock").c_str(), user->pw_uid, -1) == 0;
    return given || failed(options.user);
}

bool becomeDevUser(const Options& options) {
    return become(options.user);
}

bool becomeNetUser(const Options& options) {
    return giveState(options) && become(netUser(options)); // with what was written until now
}

} // namespace agent
