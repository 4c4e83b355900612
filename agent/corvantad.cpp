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

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/prctl.h>
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
    return agent::net::serve(
        options, {ends, [&] { return agent::dropPrivileges(options); }, agent::leaveTerminal});
}

int work(const Options& options, const agent::Ends& ends) {
    prctl(PR_SET_DUMPABLE, 0); // keeps other processes of the same user out of this one
    if (!options.foreground)
        agent::leaveTerminal();
    agent::RealSystem system(ends, options.beat, options.state, options.watchDatabase);
    system.showLife();
    if (const auto status = agent::awaitClients(options, system))
        return *status;
    try {
        agent::dev::Worker(options, system).run();
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
    if (const auto limit = agent::watchdogLimit())
        options.beat = std::clamp(*limit / kBeats, kShortestBeat, options.beat);
    if (!options.watchDatabase.empty())
        options.watchDatabase = std::filesystem::absolute(options.watchDatabase).string();
    return agent::Supervisor(options, serve, work).run();
}
