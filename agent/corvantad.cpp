#include "Client.h"
#include "Log.h"
#include "NetSnmp.h"
#include "RequestHandler.h"
#include "StateFolder.h"
#include "Worker.h"

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using agent::log;

void onPublished(int descriptor, void* handler) {
    char bytes[64];
    [[maybe_unused]] const ssize_t size = read(descriptor, bytes, sizeof bytes);
    static_cast<agent::RequestHandler*>(handler)->notifyChanges();
}

/// Signals that end the agent come through a descriptor. They are ignored, which the clients that
/// the worker starts inherit: whoever ends the whole group doesn't cut a change short. Being
/// blocked, they stay pending for the descriptor all the same.
int openSignals() {
    sigset_t stop;
    sigemptyset(&stop);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&stop, number);
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        signal(number, SIG_IGN);
    signal(SIGPIPE, [](int) {}); // not ignored, which would be inherited too
    return signalfd(-1, &stop, SFD_CLOEXEC);
}

/// Tells a service manager that wants to know.
void tellServiceManager(const char* state) {
    const char* variable = std::getenv("NOTIFY_SOCKET");
    const std::string path = variable != nullptr ? variable : "";
    sockaddr_un address{};
    if (path.empty() || path.size() >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    if (path[0] == '@')
        address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (descriptor < 0)
        return;
    sendto(descriptor, state, std::strlen(state), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&address), size);
    close(descriptor);
}

bool becomeUser(const std::string& name, const std::string& state) {
    const passwd* user = getpwnam(name.c_str());
    return user != nullptr && agent::giveState(state, user->pw_uid, user->pw_gid) &&
           initgroups(name.c_str(), user->pw_gid) == 0 && setgid(user->pw_gid) == 0 &&
           setuid(user->pw_uid) == 0;
}

int fail(const std::string& text) {
    log(LOG_ERR, text);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    agent::Options options = agent::parseOptions(argc, argv);
    agent::openLog(true); // what goes wrong now can still be seen
    if (const std::string problem = agent::prepareState(options.state, options.clientLimit);
        !problem.empty())
        return fail(problem);
    agent::setClientLimit(options.clientLimit);
    int pipe[2]; // the worker wakes this thread with it
    if (pipe2(pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return fail("no descriptors");

    agent::Worker worker({options.verbose, options.foreground, options.interval,
                          options.fullInterval, options.refreshPause, options.watchDatabase,
                          options.state},
                         [&pipe] { [[maybe_unused]] const auto size = write(pipe[1], "", 1); });
    agent::RequestHandler handler({options.maxAge, options.setDeadline, options.notifications},
                                  worker);
    agent::netsnmp::prepare(options);
    if (!handler.registerObjects())
        return fail("the objects could not be registered");
    if (!agent::netsnmp::open(options))
        return fail("cannot listen at " + options.master);
    if (!options.user.empty() && !becomeUser(options.user, options.state))
        return fail("cannot run as user " + options.user);
    if (!options.foreground && daemon(0, 0) != 0)
        return fail("cannot go to the background");
    const int signals = openSignals();
    if (signals < 0)
        return fail("no descriptors");
    agent::openLog(options.foreground);

    worker.start();
    bool stopping = false;
    register_readfd(
        signals, [](int, void* flag) { *static_cast<bool*>(flag) = true; }, &stopping);
    register_readfd(pipe[0], onPublished, &handler);
    log(LOG_INFO, "started");
    tellServiceManager("READY=1");
    while (!stopping)
        agent_check_and_process(1);
    tellServiceManager("STOPPING=1");
    const bool ended = worker.stop();
    agent::netsnmp::close();
    log(LOG_INFO, "stopped");
    if (!ended)
        _exit(0); // the worker hangs in a refresh and still uses what an ordinary end would destroy
    return 0;
}
