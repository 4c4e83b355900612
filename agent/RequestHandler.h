#pragma once

#include "Worker.h"

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace agent {

/// Answers the requests for the MIB's objects. Belongs to the protocol thread.
class RequestHandler {
public:
    struct Settings {
        std::chrono::seconds maxAge;
        std::chrono::seconds setDeadline;
        bool notifications;
    };

    RequestHandler(Settings settings, Worker& worker) : m_settings(settings), m_worker(worker) {}

    /// Registers corvantaObjects with the toolkit. @return whether it took that
    bool registerObjects();

    /// Sends a notification for each circuit that went up or down since the last call.
    void notifyChanges();

private:
    static int handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                      netsnmp_agent_request_info* info, netsnmp_request_info* requests);

    void dispatch(const netsnmp_agent_request_info& info, netsnmp_request_info* requests);
    void renewSnapshot(int mode);
    bool stale() const;
    int answer(int mode, const netsnmp_request_info& request) const;
    void reserveAll(netsnmp_request_info* requests);
    int reserve(const netsnmp_variable_list& binding, std::size_t place);
    int checkTrial() const;
    void make(netsnmp_request_info* requests);

    const Settings m_settings;
    Worker& m_worker;
    std::shared_ptr<const Snapshot> m_snapshot = m_worker.snapshot();
    std::shared_ptr<const Snapshot> m_notified = m_snapshot; ///< whose states were sent last
    Clock::time_point m_walkBegan;
    Clock::time_point m_lastStep;       ///< of a walk
    std::shared_ptr<Transaction> m_set; ///< the toolkit handles one set request at a time
    std::uint32_t m_setsRefused = 0;
    bool m_undoing = false; ///< whether a set that failed is not yet taken back

    /// The last set: a manager that has not heard of its end sends it again.
    struct Answered {
        std::string request; ///< who sent what; empty when that can't be known
        int error = SNMP_ERR_NOERROR;
        std::size_t place = 0; ///< of the variable with the error
        Clock::time_point when;
    };
    Answered m_answered;
    std::string m_request; ///< of the set under way
    bool m_again = false;  ///< whether it is the last one, again
};

} // namespace agent
