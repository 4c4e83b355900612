#pragma once

#include "agent/Log.h"
#include "agent/system/System.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <map>

namespace agent::net {

/// The requests that wait while a set is performed: the set's own, and the sets behind it.
///
/// Left alone, the toolkit would keep every request until the set is done: gets too, those of
/// managers that have disconnected, and sets without end. Its queue has no interface, so this
/// reaches into it.
class HeldRequests {
public:
    explicit HeldRequests(const System& system) : m_system(system) {}
    HeldRequests(const HeldRequests&) = delete;
    HeldRequests& operator=(const HeldRequests&) = delete;

    /// Sets the request of a set aside.
    void delegate(netsnmp_mib_handler& handler, netsnmp_handler_registration& registration,
                  netsnmp_agent_request_info& info, netsnmp_request_info* requests);

    /// Has `answer(requests)` put the errors into the request that is set aside, which the toolkit
    /// finishes in its next round. Does nothing when there is none, or the toolkit has dropped it.
    template <class Give>
    void resume(Give answer) {
        if (netsnmp_delegated_cache* const set = takeDelegated()) {
            if (netsnmp_handler_check_cache(set) != nullptr)
                answer(set->requests);
            netsnmp_free_delegated_cache(set);
        }
    }

    bool hasDelegated() const { return m_delegated != nullptr; }

    /// To be called between two rounds of the toolkit: has it handle the gets that it has kept, and
    /// drops the requests of managers that have disconnected, and the newest sets when too many
    /// wait.
    /// @return whether the request that is set aside was dropped
    bool release();

    /// When a request arrived; the toolkit may have kept it since.
    Clock::time_point arrivalOf(const netsnmp_agent_session* asked) const;

    /// When the oldest of the requests that are kept arrived; now, when none is.
    Clock::time_point oldest() const;

private:
    netsnmp_delegated_cache* takeDelegated();
    bool dropDelegated();

    const System& m_system;
    netsnmp_delegated_cache* m_delegated = nullptr;
    std::map<const netsnmp_agent_session*, Clock::time_point> m_kept; ///< and when they came
    LineLimit m_lines; ///< about sets that are dropped
};

} // namespace agent::net
