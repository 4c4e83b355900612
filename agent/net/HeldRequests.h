#pragma once

#include "agent/system/System.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <map>

namespace agent::net {

/// The requests that wait while a set is performed: the set's own, and the sets behind it.
///
/// The toolkit, left alone, would keep every request until the set is done, gets too, and keep
/// those of managers that have hung up. This reaches into its queue, for which it has no interface.
class HeldRequests {
public:
    explicit HeldRequests(const System& system) : m_system(system) {}
    HeldRequests(const HeldRequests&) = delete;
    HeldRequests& operator=(const HeldRequests&) = delete;

    /// Sets the request of a set aside.
    void delegate(netsnmp_mib_handler& handler, netsnmp_handler_registration& registration,
                  netsnmp_agent_request_info& info, netsnmp_request_info* requests);

    /// Has it go on in the toolkit's next round, with the errors that are given to it by
    /// `answer(requests)`, unless the toolkit has dropped it. Does nothing when none is set aside.
    template <class Give>
    void resume(Give answer) {
        if (netsnmp_delegated_cache* const set = takeDelegated()) {
            if (netsnmp_handler_check_cache(set) != nullptr)
                answer(set->requests);
            netsnmp_free_delegated_cache(set);
        }
    }

    bool hasDelegated() const { return m_delegated != nullptr; }

    /// Between two rounds of the toolkit's: has it handle the gets that it has kept, and drops the
    /// requests of managers that have hung up.
    /// @return whether that of the set which is set aside was among these
    bool release();

    /// When a request came, which the toolkit may have kept since.
    Clock::time_point arrivalOf(const netsnmp_agent_session* asked) const;

    /// When the first of those came that are kept; now when none is.
    Clock::time_point oldest() const;

private:
    netsnmp_delegated_cache* takeDelegated();
    bool dropDelegated();

    const System& m_system;
    netsnmp_delegated_cache* m_delegated = nullptr;
    std::map<const netsnmp_agent_session*, Clock::time_point> m_kept; ///< and when they came
};

} // namespace agent::net
