#include "agent/Background.h"
#include "agent/Log.h"
#include "agent/Privileges.h"
#include "agent/ServiceManager.h"
#include "agent/StateFolder.h"
#include "agent/Supervisor.h"
#include "agent/dev/Worker.h"
#include "agent/net/NetSnmp.h"
#include "agent/net/RequestHandler.h"
#include "agent/net/Sandbox.h"
#include "agent/net/Strangers.h"
#include "agent/system/Invariant.h"
#include "agent/system/RealSystem.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/prctl.h>
#include <unistd.h>

namespace {

using agent::log;
using agent::Options;

int fail(const std::string& text) {
    log(LOG_ERR, text);
    return 1;
}

/// What the front has at hand while it serves.
struct Front {
    agent::RequestHandler handler;
    bool stopping = false;
};

void onMessage(int, void* front) {
    static_cast<Front*>(front)->handler.receive();
}

void onStop(int, void* front) {
    static_cast<Front*>(front)->stopping = true;
}

int serve(const Options& options, int link, int alive, int stop) {
    // One that is started again may have lost the right to.
    if (!options.config.empty() && access(options.config.c_str(), R_OK) != 0)
        return fail("cannot read " + options.config);
    const auto bothWork = [alive] { [[maybe_unused]] const auto size = write(alive, "", 1); };
    agent::RealSystem system(link, stop, options.state, "");
    Front front{{{options.maxAge, options.setDeadline, options.notifications,
                  options.master.empty(), options.state},
                 system,
                 bothWork}};
    agent::Strangers strangers;
    const pid_t parent = getppid();
    agent::netsnmp::prepare(options);
    if (!front.handler.registerObjects())
        return fail("the objects could not be registered");
    if (!agent::netsnmp::open(options) || !agent::dropPrivileges(options))
        return 1;
    prctl(PR_SET_PDEATHSIG, SIGKILL); // a change of user has undone it
    if (getppid() != parent)
        return 1;
    if (!agent::enterSandbox())
        return fail("the kernel has no seccomp filters");
    if (!options.foreground)
        agent::leaveTerminal();
    register_readfd(stop, onStop, &front);
    register_readfd(link, onMessage, &front);
    bothWork();
    while (!front.stopping && !agent::netsnmp::isRefused()) {
        agent_check_and_process(1);
        front.handler.releaseRequests();
        if (options.master.empty()) {
            agent::netsnmp::watchMaster(options);
            continue;
        }
        strangers.limitConnections();
        agent::netsnmp::storeChanges();
    }
    agent::netsnmp::close();
    return front.stopping ? 0 : fail("the master refuses the objects: another agent serves them");
}

int work(const Options& options, int link, int stop) {
    agent::keepOthersOut();
    if (!options.foreground)
        agent::leaveTerminal();
    if (const auto status = agent::awaitClients(options, stop))
        return *status;
    agent::RealSystem system(link, stop, options.state, options.watchDatabase);
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
    options.watchdogBeat = agent::watchdogBeat();
    if (!options.watchDatabase.empty())
        options.watchDatabase = std::filesystem::absolute(options.watchDatabase).string();
    return agent::Supervisor(options, serve, work).run();
}
