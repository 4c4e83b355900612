#include "agent/Background.h"
#include "agent/Log.h"
#include "agent/Privileges.h"
#include "agent/ServiceManager.h"
#include "agent/StateFolder.h"
#include "agent/Supervisor.h"
#include "agent/dev/Worker.h"
#include "agent/net/Serve.h"
#include "agent/system/Invariant.h"
#include "agent/system/RealSystem.h"
#include "agent/system/Spawn.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using agent::log;
using agent::Options;

constexpr int kBeats = 12; ///< in the time that a service manager waits for a sign of life
constexpr std::chrono::microseconds kShortestBeat{1000};

int fail(const std::string& text) {
    log(LOG_ERR, text);
    return 1;
}

int serve(const Options& options, const agent::Ends& ends) {
    Options own = options;
    own.state = agent::netFolder(options);
    return agent::net::serve(
        own, {ends, [&] { return agent::becomeNetUser(options); }, agent::leaveTerminal});
}

int work(const Options& options, const agent::Ends& ends) {
    if (!agent::becomeDevUser(options))
        return 1;
    if (!options.foreground)
        agent::leaveTerminal();
    const int clientLock = agent::openClientLock(options);
    if (clientLock < 0)
        return 1;
    agent::RealSystem system(ends, options.beat, agent::devFolder(options), options.watchDatabase,
                             clientLock);
    system.showLife();
    if (const auto status = agent::awaitClients(options, clientLock, system))
        return *status;
    try {
        agent::dev::Worker(options, system).run();
    } catch (const agent::BrokenInvariant& broken) {
        log(LOG_ERR, broken.what());
        std::abort(); // the next one takes back what the journal tells
    }
    return 0;
}

/// Removes the sockets that a --master has listened at, which the process that did can't any more.
void removeSockets(const std::string& addresses) {
    std::istringstream all(addresses);
    for (std::string address; std::getline(all, address, ',');) {
        address.erase(0, address.rfind("unix:", 0) == 0 ? 5 : 0);
        struct stat state {};
        if (lstat(address.c_str(), &state) == 0 && S_ISSOCK(state.st_mode))
            unlink(address.c_str());
    }
}

} // namespace

int main(int argc, char** argv) {
    Options options = agent::parseOptions(argc, argv);
    agent::keepMemoryPrivate();
    agent::settleDescriptors();
    agent::keepTrace(options.verbose);
    agent::openLog(true); // what goes wrong now can still be seen
    if (const std::string problem = agent::prepareState(options.state); !problem.empty())
        return fail(problem);
    if (!agent::giveState(options))
        return 1;
    if (geteuid() == 0 && options.user.empty())
        log(LOG_WARNING, "runs as root: --user names another user, who needs the right to run the "
                         "device's client");
    if (const auto limit = agent::watchdogLimit())
        options.beat = std::clamp(*limit / kBeats, kShortestBeat, options.beat);
    if (!options.watchDatabase.empty())
        options.watchDatabase = std::filesystem::absolute(options.watchDatabase).string();
    const int status = agent::Supervisor(options, serve, work).run();
    removeSockets(options.master);
    return status;
}
