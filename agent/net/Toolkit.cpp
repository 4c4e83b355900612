#include "agent/net/Toolkit.h"

#include "agent/Log.h"
#include "agent/net/Master.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/mib_modules.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>

namespace agent::net {

namespace {

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

/// The toolkit's lines go where the agent's go. It logs a line for every malformed
/// packet.
int forwardLog(int, int, void* message, void*) {
    static LineLimit limit;
    const auto& line = *static_cast<const snmp_log_message*>(message);
    std::string text(line.msg);
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    refused = refused || text.compare(0, kRefused.size(), kRefused) == 0;
    limit.log(std::chrono::steady_clock::now(), line.priority, text);
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

Toolkit::Toolkit(const Options& options) : m_options(options), m_identity(options.state) {
    snmp_enable_calllog();
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, forwardLog, nullptr);
    setenv("MIBS", "", 1); // names are the manager's matter: no module needs parsing here
    m_identity.mend();
    setText(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, options.state);
    if (const char* const path = std::getenv("SNMPCONFPATH")) // it replaces the state folder too
        setenv("SNMPCONFPATH", (path + (':' + options.state)).c_str(), 1);
    setText(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OPTIONALCONFIG, options.config);
    setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS);
    if (options.master.empty()) {
        prepareSubagent();
        return;
    }
    setText(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, options.master);
    prepareMaster();
}

void Toolkit::prepareSubagent() {
    setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE);
    setFlag(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE);
    setText(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, m_options.socket);
    init_agent(kName);
    // The toolkit would not say what is wrong.
    setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_NO_CONNECTION_WARNINGS);
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL,
                       kMasterPause);
}

void Toolkit::prepareMaster() {
    // Users and views, and what every agent must have. With the whole list, the toolkit would show
    // the host too, and open the SMUX port on all addresses.
    char modules[] = "system_mib,snmp_mib,snmpEngine,usmStats,usmConf,vacm_conf";
    add_to_init_list(modules);
    init_agent(kName);
    init_mib_modules();
    for (std::string line : kDefaults)
        netsnmp_config(line.data());
}

bool Toolkit::open() {
    init_snmp(kName);
    if (m_options.master.empty())
        return true;
    if (init_master_agent() != 0) {
        log(LOG_ERR, "cannot listen at " + m_options.master);
        return false;
    }
    if (!m_identity.storeBoots())
        return false;
    if (m_options.notifications)
        send_easy_trap(SNMP_TRAP_COLDSTART, 0);
    return true;
}

bool Toolkit::isRefused() {
    return refused;
}

void Toolkit::close() {
    // All that changes has been stored when it did.
    setFlag(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE);
    snmp_shutdown(kName);
}

void endProcess(const BrokenInvariant& broken) {
    log(LOG_ERR, broken.what());
    std::abort();
}

} // namespace agent::net
