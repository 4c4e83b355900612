#pragma once

#include "agent/Log.h"
#include "agent/Options.h"
#include "agent/link/Link.h"
#include "agent/net/Alarm.h"
#include "agent/net/HeldRequests.h"
#include "agent/net/Notifications.h"
#include "agent/net/Sets.h"
#include "agent/net/Snapshots.h"

namespace agent::net {

/// Answers the requests for the MIB's objects: gets at once, from a snapshot, sets when the
/// device's process tells what became of them.
class RequestHandler {
public:
    RequestHandler(const Options& options, System& system);

    /// Registers corvantaObjects with the toolkit. @return whether that succeeded
    bool registerObjects();

    /// Takes in what the device's process has sent.
    void receive();

    /// Keeps gets from waiting for a set. To be called between two rounds of the toolkit.
    void releaseRequests();

    /// Whether notifications reach a master.
    void setReachable(bool reachable);

private:
    static int handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                      netsnmp_agent_request_info* info, netsnmp_request_info* requests);

    bool isSubagent() const { return m_options.master.empty(); }
    void dispatch(netsnmp_mib_handler& handler, netsnmp_handler_registration& registration,
                  netsnmp_agent_request_info& info, netsnmp_request_info* requests);
    void get(int mode, netsnmp_request_info* requests);
    int answer(int mode, const netsnmp_request_info& request) const;
    void await();
    void take(const Message& message);
    void notify();

    const Options& m_options;
    System& m_system;
    Link m_link;
    Snapshots m_snapshots;
    Sets m_sets;
    HeldRequests m_held;
    Notifications m_notifications;
    Alarm m_alarm;
    LineLimit m_failures; ///< lines about requests that failed for want of memory
};

} // namespace agent::net
