#include "NetSnmp.h"

#include "Log.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/mib_modules.h>

#include <cstdlib>
#include <string>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

/// The toolkit opens its sockets without close-on-exec, on every reconnect anew. Its calls come
/// here instead of to the system library, so that no client that the worker starts can inherit one,
/// not even between two calls.
extern "C" int socket(int domain, int type, int protocol) noexcept {
    return static_cast<int>(syscall(SYS_socket, domain, type | SOCK_CLOEXEC, protocol));
}

/// Likewise for managers that connect, when the address of a --master is of such a kind.
extern "C" int accept(int descriptor, sockaddr* address, socklen_t* length) {
    return accept4(descriptor, address, length, SOCK_CLOEXEC);
}

namespace agent::netsnmp {

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

/// The toolkit's lines go where the agent's go.
int forwardLog(int, int, void* message, void*) {
    const auto& line = *static_cast<const snmp_log_message*>(message);
    std::string text(line.msg);
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    log(line.priority, text);
    return SNMPERR_SUCCESS;
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
    setText(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, options.state);
    setText(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OPTIONALCONFIG, options.config);
    setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS);
    if (options.master.empty()) {
        setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE);
        setFlag(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE);
        setText(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, options.socket);
        init_agent(kName);
        // The first attempt may log that there is no master; later ones are silent.
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
    setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_NO_CONNECTION_WARNINGS);
    return options.master.empty() || init_master_agent() == 0;
}

void close() {
    snmp_shutdown(kName);
}

} // namespace agent::netsnmp
