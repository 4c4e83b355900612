#include "agent/Privileges.h"

#include "agent/Log.h"

#include <filesystem>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace agent {

namespace {

namespace fs = std::filesystem;

/// Makes the state folder and what is in it the user's.
bool giveState(const std::string& folder, const passwd& user) {
    std::error_code failed;
    bool given = lchown(folder.c_str(), user.pw_uid, user.pw_gid) == 0;
    for (fs::recursive_directory_iterator each(folder, failed), end; !failed && each != end;
         each.increment(failed))
        given = given && lchown(each->path().c_str(), user.pw_uid, user.pw_gid) == 0;
    return given && !failed;
}

bool become(const passwd& user) {
    return initgroups(user.pw_name, user.pw_gid) == 0 && setgid(user.pw_gid) == 0 &&
           setuid(user.pw_uid) == 0;
}

} // namespace

bool dropPrivileges(const Options& options) {
    if (options.user.empty())
        return true;
    const passwd* user = getpwnam(options.user.c_str());
    if (user != nullptr &&
        (user->pw_uid == geteuid() || (giveState(options.state, *user) && become(*user))))
        return true;
    log(LOG_ERR, "cannot run as user " + options.user);
    return false;
}

} // namespace agent
