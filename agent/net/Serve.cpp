#include "agent/net/Serve.h"

#include "agent/Log.h"
#include "agent/net/Alarm.h"
#include "agent/net/Connections.h"
#include "agent/net/Master.h"
#include "agent/net/RequestHandler.h"
#include "agent/net/Sandbox.h"
#include "agent/net/Toolkit.h"

#include <optional>
#include <string>

#include <unistd.h>

namespace agent::net {

namespace {

int fail(const std::string& text) {
    log(LOG_ERR, text);
    return 1;
}

void onMessage(int, void* handler) {
    static_cast<RequestHandler*>(handler)->receive();
}

void onStop(int, void* stopping) {
    *static_cast<bool*>(stopping) = true;
}

void onBeat(unsigned, void* system) {
    static_cast<RealSystem*>(system)->showLife();
}

/// Gives up all that is not needed any more once the ports are open. @return what is wrong
std::optional<std::string> giveUpRights(const Options& options, const Start& start) {
    if (!start.dropPrivileges())
        return ""; // it has logged why
    switch (enterSandbox(options.state)) {
    case Sandbox::none:
        return "the kernel has no seccomp filters";
    case Sandbox::callsOnly:
        if (options.netUser.empty())
            log(LOG_WARNING,
                "without Landlock: whoever takes over the process that faces the network could "
                "write all files of its user, the journal of changes among them; --net-user "
                "gives it a user of its own");
        break;
    case Sandbox::whole:
        break;
    }
    return std::nullopt;
}

/// A call that is refused is a fault of this program, or somebody else's who has taken it over.
void reportRefused(Clock::time_point now) {
    static LineLimit limit;
    for (const std::string& call : takeRefused())
        limit.log(now, LOG_WARNING, "the sandbox has refused the system call " + call);
}

} // namespace

int serve(const Options& options, const Start& start) {
    // A process that is started again may no longer have the right to read it.
    if (!options.config.empty() && access(options.config.c_str(), R_OK) != 0)
        return fail("cannot read " + options.config);
    RealSystem system(start.ends, options.beat, options.state, "");
    RequestHandler handler(options, system);
    Connections connections(system);
    Toolkit toolkit(options, system);
    std::optional<Master> master;
    if (options.master.empty())
        master.emplace(options, system, [&](bool there) { handler.setReachable(there); });
    if (!handler.registerObjects())
        return fail("the objects could not be registered");
    if (!toolkit.open())
        return 1;
    if (const auto problem = giveUpRights(options, start))
        return problem->empty() ? 1 : fail(*problem);
    if (!options.foreground)
        start.leaveTerminal();
    bool stopping = false;
    register_readfd(start.ends.stop, onStop, &stopping);
    register_readfd(start.ends.link, onMessage, &handler);
    system.showLife(); // it is ready
    callAfter(options.beat, true, onBeat, &system);
    while (!stopping && !Toolkit::isRefused()) {
        agent_check_and_process(1);
        reportRefused(system.now());
        handler.releaseRequests();
        if (master) {
            master->watch();
            continue;
        }
        connections.limit();
        toolkit.storeChanges();
    }
    Toolkit::close();
    reportRefused(system.now());
    return stopping ? 0 : fail("the master refuses the objects: another agent serves them");
}

} // namespace agent::net
