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

/// The toolkit's folder for what it keeps, where nothing can be: it would make one for an index of
/// certificates, and read what else is there.
constexpr const char* kNowhere = "/dev/null";

constexpr std::chrono::seconds kStorePause{60}; ///< after a failure, while the agent runs

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
    if (text.compare(0, kMemoryFiles.size(), kMemoryFiles) == 0)
        text.replace(0, text.find(':'), "corvantad.conf of the state folder");
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

Toolkit::Toolkit(const Options& options, System& system)
    : m_options(options), m_system(system), m_identity(system) {
    snmp_enable_calllog();
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, forwardLog, nullptr);
    setenv("MIBS", "", 1); // names are the manager's matter: no module needs parsing here
    setText(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, kNowhere);
    setText(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OPTIONALCONFIG, options.config);
    setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS);
    setFlag(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DISABLE_PERL); // no line runs code
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
    if (m_options.master.empty()) {
        init_snmp(kName);
        return true;
    }
    if (!beginIdentity())
        return false;
    if (init_master_agent() != 0) {
        log(LOG_ERR, "cannot listen at " + m_options.master);
        return false;
    }
    if (m_options.notifications)
        send_easy_trap(SNMP_TRAP_COLDSTART, 0);
    return true;
}

/// Begins where the last start has stored that it was, and stores this one, all before a packet can
/// come: one that was captured before isn't taken for a new one then.
bool Toolkit::beginIdentity() {
    const auto lines = m_identity.load();
    if (!lines || !m_state.open(*lines))
        return false;
    // Before the configuration, whose createUser lines count anew at each start.
    const std::string more = m_options.config.empty() ? "" : "," + m_options.config;
    setText(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OPTIONALCONFIG, m_state.path() + more);
    init_snmp(kName);
    if (m_identity.store(m_state.lines()))
        return true;
    log(LOG_ERR, "nobody is answered with a boot count that is not stored");
    return false;
}

void Toolkit::storeChanges() {
    const auto now = m_system.now();
    if (now < m_storeAgain)
        return;
    const auto lines = m_state.changedLines();
    if (!lines || m_identity.store(*lines))
        return;
    ToolkitState::keepChanged();
    m_storeAgain = now + kStorePause;
}

bool Toolkit::isRefused() {
    return refused;
}

void Toolkit::close() {
    snmp_shutdown(kName);
}

void endProcess(const BrokenInvariant& broken) {
    log(LOG_ERR, broken.what());
    std::abort();
}

} // namespace agent::net
