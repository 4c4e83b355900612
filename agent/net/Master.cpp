#include "agent/net/Master.h"

#include "agent/Log.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/agent_callbacks.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent::net {

namespace {

/// The only one. It is no argument of the callbacks: the toolkit would free that at its end.
Master* master = nullptr;

std::string userName() {
    const passwd* const user = getpwuid(geteuid());
    return user != nullptr ? user->pw_name : std::to_string(geteuid());
}

/// @return 0 when this user can reach the master's socket, else an errno
int tryMaster(const std::string& path, bool connected) {
    if (connected) // perhaps with rights that have been given up since
        return access(path.c_str(), R_OK | W_OK) != 0 && errno == EACCES ? EACCES : 0;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return ENAMETOOLONG;
    path.copy(address.sun_path, path.size());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int failed =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
            ? 0
            : errno;
    ::close(descriptor);
    return failed;
}

} // namespace

Master::Master(const Options& options, const System& system,
               std::function<void(bool there)> onChange)
    : m_options(options), m_system(system), m_onChange(std::move(onChange)) {
    master = this;
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START,
                           onConnection<true>, nullptr);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP,
                           onConnection<false>, nullptr);
}

Master::~Master() {
    master = nullptr;
}

template <bool there>
int Master::onConnection(int, int, void*, void*) {
    if (master == nullptr)
        return SNMPERR_SUCCESS;
    master->m_connected = there;
    master->m_onChange(there);
    return SNMPERR_SUCCESS;
}

/// What keeps the agent from its master, and what to look at; empty when nothing is known to.
std::string Master::problem() const {
    std::string path = m_options.socket;
    if (path.empty())
        path = NETSNMP_AGENTX_SOCKET;
    if (path.rfind("unix:", 0) == 0)
        path.erase(0, 5);
    if (path[0] != '/' && path.find(':') != path.npos) // by TCP, where nobody has to be let in
        return m_connected ? "" : "cannot reach the master at " + path;
    const int failed = tryMaster(path, m_connected);
    if (failed == 0)
        return "";
    std::string text = std::string(m_connected ? "cannot reconnect to" : "cannot reach") +
                       " the master at " + path + ": " + std::strerror(failed);
    if (failed == EACCES)
        return text + ": snmpd lets user " + userName() +
               " in by a line 'agentXPerms 0660 0751 USER GROUP' in its configuration, which a "
               "corvanta.conf of 1.0 lacks; then restart snmpd";
    return text + ": does snmpd run, with 'master agentx' in its configuration?";
}

void Master::watch() {
    const auto now = m_system.now();
    if (std::exchange(m_watched, m_connected) == m_connected && (m_connected || now < m_due))
        return;
    m_due = now + std::chrono::seconds(kMasterPause);
    const std::string problem = this->problem();
    if (!problem.empty() && problem != m_told)
        log(LOG_WARNING, problem);
    m_told = problem; // that it is there again, the toolkit says
}

} // namespace agent::net
