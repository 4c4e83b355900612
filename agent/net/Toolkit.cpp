#include "agent/net/Toolkit.h"

#include "agent/Log.h"
#include "agent/net/Connections.h"
#include "agent/system/Files.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/agent/mib_modules.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent::toolkit {

namespace {

constexpr const char* kName = "corvantad"; ///< of the configuration and the state file
constexpr int kPingInterval = 2;           ///< seconds between attempts to reach the master

/// What the configuration may still say otherwise, which is read after it. The sysObjectID and the
/// sysDescr are what discovery tools go by. The last lets one GETBULK have the whole tree, which is
/// more than the toolkit's 100 values.
constexpr const char* kDefaults[] = {
    "[corvantad] sysObjectID " CORVANTA_IDENTITY,
    "[corvantad] sysDescr corvantad " CORVANTA_VERSION
    ", SNMP agent of an ATM-over-SHDSL modem-router",
    "[corvantad] maxGetbulkResponses 200",
};

/// All that the toolkit says of a master that refuses what the agent registers.
constexpr std::string_view kRefused = "registering pdu failed";
bool refused = false;

/// The toolkit's lines go where the agent's go. It has one for each packet that is none.
int forwardLog(int, int, void* message, void*) {
    static LineLimit limit;
    const auto& line = *static_cast<const snmp_log_message*>(message);
    std::string text(line.msg);
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    refused = refused || text.compare(0, kRefused.size(), kRefused) == 0;
    const int keptBack = limit.pass(std::chrono::steady_clock::now());
    if (keptBack > 0)
        log(LOG_WARNING, std::to_string(keptBack) + " more lines like those before");
    if (keptBack >= 0)
        log(line.priority, text);
    return SNMPERR_SUCCESS;
}

std::string stateFolder; ///< where the file is that must outlive a restart: users, boot count

/// The toolkit writes that file line by line and doesn't see whether it could: it does so in a
/// folder beside, and only what is whole takes the place of the old one.
std::string newFolder() {
    return stateFolder + "/new";
}

std::string fileIn(const std::string& folder) {
    return folder + "/" + kName + ".conf";
}

/// Whether all is there, up to the engine ID, which the toolkit writes last.
bool isWhole(const std::string& text, const std::string& boots, int users) {
    std::istringstream lines(text);
    bool hasBoots = false;
    bool hasEngine = false;
    for (std::string line; std::getline(lines, line) && !lines.eof();) { // an open end is no end
        hasBoots = hasBoots || line.rfind(boots, 0) == 0;
        hasEngine = hasEngine || line.rfind("oldEngineID 0x", 0) == 0;
        users -= line.rfind("usmUser ", 0) == 0;
    }
    return hasBoots && hasEngine && users <= 0;
}

/// Brings the file back that a toolkit has set aside to write another one, and didn't come to the
/// end of it. From both of them it would take another engine ID.
void mendState() {
    const std::string name = fileIn(stateFolder);
    std::vector<std::string> others;
    for (int i = 0; i <= NETSNMP_MAX_PERSISTENT_BACKUPS; ++i)
        others.push_back(stateFolder + "/" + kName + "." + std::to_string(i) + ".conf");
    const auto hasState = [](const std::string& file) {
        return isWhole(textOf(file).value_or(""), "engineBoots ", 0);
    };
    if (!hasState(name)) {
        const auto other = std::find_if(others.begin(), others.end(), hasState);
        if (other == others.end() || !replaceFile(name, *textOf(other->c_str())))
            return;
        log(LOG_WARNING, name + " was not whole: " + *other + " takes its place");
    }
    for (const std::string& other : others)
        std::remove(other.c_str());
}

/// Puts what the toolkit has written in the place of the old file, safely.
bool takeNewState() {
    int users = 0;
    for (const usmUser* user = usm_get_userList(); user != nullptr; user = user->next)
        users += user->userStorageType == ST_NONVOLATILE;
    const std::string boots = "engineBoots " + std::to_string(snmpv3_local_snmpEngineBoots());
    const std::string text = textOf(fileIn(newFolder())).value_or("");
    std::remove(fileIn(newFolder()).c_str());
    if (isWhole(text, boots, users) && replaceFile(fileIn(stateFolder), text))
        return true;
    log(LOG_ERR, "cannot write " + fileIn(stateFolder) + ": it is left as it was");
    return false;
}

/// Stores this start's number. A packet that was sent to the engine before can't be sent to it
/// again then, whatever ends it.
bool storeBoots() {
    if (mkdir(newFolder().c_str(), 0700) != 0 && errno != EEXIST) {
        log(LOG_ERR, "cannot make " + newFolder() + ": " + std::strerror(errno));
        return false;
    }
    std::remove(fileIn(newFolder()).c_str()); // of one that was killed
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR,
                          newFolder().c_str());
    snmp_store(kName);
    return takeNewState();
}

bool connected = false;      ///< to the master
std::optional<bool> watched; ///< as it was when it was last looked at

template <bool there>
int onConnection(int, int, void*, void*) {
    connected = there;
    return SNMPERR_SUCCESS;
}

std::string userName() {
    const passwd* const user = getpwuid(geteuid());
    return user != nullptr ? user->pw_name : std::to_string(geteuid());
}

/// Whether the master's socket can be reached by this user; an errno, or 0.
int tryMaster(const std::string& path) {
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

/// What keeps the agent from its master, and what to look at; empty when nothing is known to.
std::string masterProblem(std::string path) {
    if (path.empty())
        path = NETSNMP_AGENTX_SOCKET;
    if (path.rfind("unix:", 0) == 0)
        path.erase(0, 5);
    if (path[0] != '/' && path.find(':') != path.npos) // by TCP, where nobody has to be let in
        return connected ? "" : "cannot reach the master at " + path;
    const int failed = tryMaster(path);
    if (failed == 0)
        return "";
    std::string text = std::string(connected ? "cannot reconnect to" : "cannot reach") +
                       " the master at " + path + ": " + std::strerror(failed);
    if (failed == EACCES)
        return text + ": snmpd lets user " + userName() +
               " in by a line 'agentXPerms 0660 0751 USER GROUP' in its configuration, which a "
               "corvanta.conf of 1.0 lacks; then restart snmpd";
    return text + ": does snmpd run, with 'master agentx' in its configuration?";
}

void setFlag(int store, int which) {
    netsnmp_ds_set_boolean(store, which, 1);
}

void setText(int store, int which, const std::string& text) {
    if (!text.empty())
        netsnmp_ds_set_string(store, which, text.c_str());
}

} // namespace

void prepare(const Options& options) {
    snmp_enable_calllog();
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, forwardLog, nullptr);
    setenv("MIBS", "", 1); // names are the manager's matter: no module needs parsing here
    stateFolder = options.state;
    mendState();
    setText(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, options.state);
    if (const char* const path = std::getenv("SNMPCONFPATH")) // it replaces the state folder too
        setenv("SNMPCONFPATH", (path + (':' + options.state)).c_str(), 1);
    setText(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OPTIONALCONFIG, options.config);
    setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS);
    if (options.master.empty()) {
        setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE);
        setFlag(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE);
        setText(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, options.socket);
        init_agent(kName);
        // The toolkit would not say what is wrong.
        setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_NO_CONNECTION_WARNINGS);
        snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START,
                               onConnection<true>, nullptr);
        snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP,
                               onConnection<false>, nullptr);
        netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL,
                           kPingInterval);
        return;
    }
    setText(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, options.master);
    // Users and views, and what every agent must have. With the whole list, the toolkit would show
    // the host too, and open the SMUX port on all addresses.
    char modules[] = "system_mib,snmp_mib,snmpEngine,usmStats,usmConf,vacm_conf";
    add_to_init_list(modules);
    init_agent(kName);
    init_mib_modules();
    for (std::string line : kDefaults)
        netsnmp_config(line.data());
}

bool open(const Options& options) {
    init_snmp(kName);
    if (options.master.empty())
        return true;
    if (init_master_agent() != 0) {
        log(LOG_ERR, "cannot listen at " + options.master);
        return false;
    }
    if (!storeBoots())
        return false;
    if (options.notifications)
        send_easy_trap(SNMP_TRAP_COLDSTART, 0);
    return true;
}

bool isRefused() {
    return refused;
}

void watchMaster(const Options& options) {
    using Clock = std::chrono::steady_clock;
    static std::string told;
    static Clock::time_point due;
    if (std::exchange(watched, connected) == connected && (connected || Clock::now() < due))
        return;
    due = Clock::now() + std::chrono::seconds(kPingInterval);
    const std::string problem = masterProblem(options.socket);
    if (!problem.empty() && problem != told)
        log(LOG_WARNING, problem);
    told = problem; // that it is there again, the toolkit says
}

void storeChanges() {
    snmp_store_if_needed();
    if (access(fileIn(newFolder()).c_str(), F_OK) == 0)
        takeNewState();
}

void close() {
    // All that changes has been stored when it did.
    setFlag(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE);
    snmp_shutdown(kName);
}

} // namespace agent::toolkit
