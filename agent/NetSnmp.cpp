#include "NetSnmp.h"

#include "Log.h"
#include "Strangers.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/mib_modules.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

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
    const int keptBack = limit.pass();
    if (keptBack > 0)
        log(LOG_WARNING, std::to_string(keptBack) + " more lines like those before");
    if (keptBack >= 0)
        log(line.priority, text);
    return SNMPERR_SUCCESS;
}

/// Whether the file of what must outlive a restart has this start's number, safely. A packet that
/// was sent to the engine before can't be sent to it again then, whatever ends it.
bool storeBoots(const std::string& folder) {
    snmp_store(kName);
    const std::string name = folder + "/" + kName + ".conf";
    std::ifstream file(name);
    const std::string wanted = "engineBoots " + std::to_string(snmpv3_local_snmpEngineBoots());
    bool there = false;
    for (std::string line; std::getline(file, line);)
        there = there || line == wanted;
    for (const std::string& path : {name, folder}) {
        const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        there = there && descriptor >= 0 && fsync(descriptor) == 0;
        if (descriptor >= 0)
            ::close(descriptor);
    }
    if (!there)
        log(LOG_ERR, "cannot write " + name);
    return there;
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
    if (const char* const path = std::getenv("SNMPCONFPATH")) // it replaces the state folder too
        setenv("SNMPCONFPATH", (path + (':' + options.state)).c_str(), 1);
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
    if (options.master.empty())
        return true;
    if (init_master_agent() != 0) {
        log(LOG_ERR, "cannot listen at " + options.master);
        return false;
    }
    if (!storeBoots(options.state))
        return false;
    if (options.notifications)
        send_easy_trap(SNMP_TRAP_COLDSTART, 0);
    return true;
}

bool isRefused() {
    return refused;
}

void close() {
    snmp_shutdown(kName);
}

} // namespace agent::netsnmp
