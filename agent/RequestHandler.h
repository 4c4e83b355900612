#pragma once

#include "Messages.h"
#include "Told.h"

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/agent_callbacks.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace agent {

/// Answers the requests for the MIB's objects: gets at once, from the newest
/// snapshot, sets when the device's side tells what became of them.
class RequestHandler {
public:
    /// Tells a request that comes again from another one.
    struct Identity {
        std::string sender; ///< with the request's Id; empty when that can't be known
        std::string values;
    };

    struct Settings {
        std::chrono::seconds maxAge;
        std::chrono::seconds setDeadline;
        bool notifications;
        bool subagent;     ///< of a master, which asks nothing else while it waits for a set
        std::string state; ///< folder of what notifications have told
    };

    /// @param works called whenever the device's side has shown that it works
    RequestHandler(Settings settings, Link link, std::function<void()> works);

    /// Registers corvantaObjects with the toolkit. @return whether it took that
    bool registerObjects();

    /// Takes in what the device's side has sent.
    void receive();

    /// Sees to it that no get waits for a set: the toolkit would keep every request until the one
    /// is done. To be called between two rounds of the toolkit's.
    void releaseRequests();

private:
    struct Answered;

    template <bool there>
    static int onConnection(int, int, void*, void*);
    static int handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                      netsnmp_agent_request_info* info, netsnmp_request_info* requests);

    void dispatch(netsnmp_mib_handler& handler, netsnmp_handler_registration& registration,
                  netsnmp_agent_request_info& info, netsnmp_request_info* requests);
    void renewSnapshot(int mode);
    bool stale() const;
    int answer(int mode, const netsnmp_request_info& request) const;
    void reserveAll(netsnmp_request_info* requests);
    int reserve(const netsnmp_variable_list& binding, std::size_t place);
    int checkTrial() const;
    Clock::time_point arrivalOf(const netsnmp_agent_session* asked) const;
    const Answered* findAnswer(Clock::time_point came) const;
    void forgetAnswers();
    void remember(int error, std::size_t place);
    void note(const netsnmp_agent_request_info& info, const netsnmp_request_info* requests);
    void logSet(const std::string& outcome, int error);
    void logReverts(const Snapshot& before);
    bool ask(netsnmp_request_info* requests);
    void finish(const SetResult& result, netsnmp_request_info* requests);
    SetResult await(std::uint64_t id, Clock::time_point deadline);
    void undo(netsnmp_request_info* requests);
    void take(const Message& message);
    void takeSnapshot(const Snapshot& snapshot);
    void takeResult(const SetResult& result);
    SetResult judge(const Snapshot& snapshot) const;
    void notifyChanges();
    void setReachable(bool reachable);
    void wakeAt(Clock::time_point time);

    const Settings m_settings;
    const Link m_link;
    const std::function<void()> m_works;
    std::shared_ptr<const Snapshot> m_newest;
    std::shared_ptr<const Snapshot> m_snapshot; ///< what requests see
    bool m_heard = false;                       ///< of a snapshot
    std::uint64_t m_side = 0;                   ///< the device's side that there is
    std::uint64_t m_doubtful = 0;               ///< the set that the one before may have made
    Counters m_before;                          ///< of device's sides that have gone
    Told m_told;                                ///< by notifications
    Clock::time_point m_walkBegan;
    Clock::time_point m_lastStep;    ///< of a walk
    std::optional<SetRequest> m_set; ///< the toolkit handles one set request at a time
    std::uint64_t m_nextId;
    std::optional<SetResult> m_result;            ///< of the set, or of taking it back
    netsnmp_delegated_cache* m_waiting = nullptr; ///< the set's request while its manager waits
    Clock::time_point m_giveUp;                   ///< when the device's side must have told
    Clock::time_point m_wakeDue;                  ///< when to look again, whatever comes in
    std::uint32_t m_setsRefused = 0;

    /// When the requests came that the toolkit keeps behind a set.
    std::map<const netsnmp_agent_session*, Clock::time_point> m_kept;

    /// What was answered to a set: a manager that has not heard of it sends the same again, when
    /// sets of others may have come between.
    struct Answered {
        Identity request;
        int error;
        std::size_t place; ///< of the variable with the error
        Clock::time_point when;
    };
    std::deque<Answered> m_answered; ///< in order of time
    std::string m_asked;             ///< who set what, for the log
    Clock::time_point m_came;        ///< and when
    std::string m_onTrial;           ///< likewise, of the change that is pending
    Identity m_request;              ///< of the set under way
    bool m_again = false;            ///< whether that has been answered
};

} // namespace agent
