#include "Log.h"
#include "Toolkit.h"
#include "Tree.h"
#include "Worker.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using agent::log;

int g_pipe[2]; ///< wakes the protocol thread; a byte says what for
constexpr char kStop = 's';
constexpr char kPublished = 'p';
bool g_stopping = false;

void wake(char why) {
    const int saved = errno;
    [[maybe_unused]] const ssize_t written = write(g_pipe[1], &why, 1); // full: it will wake anyway
    errno = saved;
}

void onWake(int descriptor, void* tree) {
    char why[64];
    const ssize_t size = read(descriptor, why, sizeof why);
    for (ssize_t i = 0; i < size; ++i)
        g_stopping = g_stopping || why[i] == kStop;
    static_cast<agent::Tree*>(tree)->notifyChanges();
}

void handleSignals() {
    struct sigaction action {};
    action.sa_handler = [](int) { wake(kStop); };
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaction(number, &action, nullptr);
    action.sa_handler = [](int) {}; // not ignored, which the worker's clients would inherit
    sigaction(SIGPIPE, &action, nullptr);
}

/// Starts the worker where no signal to stop reaches it or its clients: a change isn't cut short.
void startWorker(agent::Worker& worker) {
    sigset_t stop;
    sigset_t saved;
    sigemptyset(&stop);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&stop, number);
    pthread_sigmask(SIG_BLOCK, &stop, &saved);
    worker.start();
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

/// Tells a service manager that wants to know.
void tellServiceManager(const char* state) {
    const char* path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (path == nullptr || std::strlen(path) >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path);
    if (path[0] == '@')
        address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path));
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (descriptor < 0)
        return;
    sendto(descriptor, state, std::strlen(state), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&address), size);
    close(descriptor);
}

bool becomeUser(const std::string& name) {
    const passwd* user = getpwnam(name.c_str());
    return user != nullptr && initgroups(name.c_str(), user->pw_gid) == 0 &&
           setgid(user->pw_gid) == 0 && setuid(user->pw_uid) == 0;
}

int fail(const std::string& text) {
    log(LOG_ERR, text);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    const agent::Options options = agent::parseOptions(argc, argv);
    agent::openLog(true); // what goes wrong now can still be seen
    if (pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return fail("no pipe");
    handleSignals();

    agent::Worker worker({options.verbose, options.foreground, options.interval},
                         [] { wake(kPublished); });
    agent::Tree tree({options.maxAge, options.setDeadline, options.notifications}, worker);
    agent::toolkit::prepare(options);
    if (!tree.registerObjects())
        return fail("the objects could not be registered");
    if (!agent::toolkit::open(options))
        return fail("cannot listen at " + options.master);
    if (!options.user.empty() && !becomeUser(options.user))
        return fail("cannot run as user " + options.user);
    if (!options.foreground && daemon(0, 0) != 0)
        return fail("cannot go to the background");
    agent::openLog(options.foreground);

    startWorker(worker);
    register_readfd(g_pipe[0], onWake, &tree);
    log(LOG_INFO, "started");
    tellServiceManager("READY=1");
    while (!g_stopping)
        agent_check_and_process(1);
    tellServiceManager("STOPPING=1");
    const bool ended = worker.stop();
    agent::toolkit::close();
    log(LOG_INFO, "stopped");
    if (!ended)
        _exit(0); // the worker hangs in a refresh and still uses what an ordinary end would destroy
    return 0;
}
