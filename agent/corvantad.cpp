#include "agent/Log.h"
#include "agent/Processes.h"
#include "agent/StateFolder.h"
#include "agent/dev/Worker.h"
#include "agent/net/Serve.h"
#include "agent/system/Invariant.h"
#include "agent/system/RealSystem.h"

#include <cstdlib>
#include <filesystem>
#include <string>

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

using agent::log;
using agent::Options;

int fail(const std::string& text) {
    log(LOG_ERR, text);
    return 1;
}

/// Gives up privileges, where the options say so.
bool drop(const Options& options) {
    if (options.user.empty())
        return true;
    const passwd* user = getpwnam(options.user.c_str());
    if (user != nullptr && user->pw_uid == geteuid())
        return true;
    if (user == nullptr || !agent::giveState(options.state, user->pw_uid, user->pw_gid) ||
        initgroups(options.user.c_str(), user->pw_gid) != 0 || setgid(user->pw_gid) != 0 ||
        setuid(user->pw_uid) != 0) {
        log(LOG_ERR, "cannot run as user " + options.user);
        return false;
    }
    return true;
}

int serve(const Options& options, int link, int alive, int stop) {
    return agent::net::serve(
        options, {link, alive, stop, [&] { return drop(options); }, agent::leaveTerminal});
}

int work(const Options& options, int link, int stop) {
    prctl(PR_SET_DUMPABLE, 0); // keeps other processes of the same user out of this one
    if (!options.foreground)
        agent::leaveTerminal();
    if (const std::string problem = agent::awaitClients(options.state, options.clientLimit);
        !problem.empty())
        return fail(problem);
    agent::RealSystem system(link, stop, options.state, options.watchDatabase);
    try {
        agent::Worker(options, system).run();
    } catch (const agent::BrokenInvariant& broken) {
        log(LOG_ERR, broken.what());
        std::abort(); // the next one takes back what the journal tells
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    Options options = agent::parseOptions(argc, argv);
    agent::keepTrace(options.verbose);
    agent::openLog(true); // what goes wrong now can still be seen
    if (const std::string problem = agent::prepareState(options.state); !problem.empty())
        return fail(problem);
    options.watchdogBeat = agent::watchdogBeat();
    if (!options.watchDatabase.empty())
        options.watchDatabase = std::filesystem::absolute(options.watchDatabase).string();
    return agent::supervise(
        {[&](int link, int alive, int stop) { return serve(options, link, alive, stop); },
         [&](int link, int stop) { return work(options, link, stop); },
         [&] { return drop(options); }, options.foreground});
}
