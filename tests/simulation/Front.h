#pragma once

#include "Oracle.h"

#include "agent/link/Link.h"
#include "agent/net/Sets.h"
#include "agent/net/Snapshots.h"

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace simulation {

/// What a manager asks for.
struct Request {
    int manager = 0;
    int number = 0; ///< no two of a manager's have the same, unless it repeats one
    std::vector<Assignment> values;
    std::optional<long> trial;
    agent::Verdict verdict = agent::Verdict::notGiven;
    bool restFails = false; ///< something else in the packet, which another agent has to set
};

/// The process that faces the network, less the toolkit: requests of managers come here, wait their
/// turn, and are answered.
class Front {
public:
    Front(Machine& machine, Oracle& oracle);
    ~Front();
    Front(const Front&) = delete;
    Front& operator=(const Front&) = delete;

    void ask(const Request& request);
    void hangUp(); ///< the manager whose set is performed
    void get(const Place& place);
    void asked(const agent::Message& message);

    /// Takes in what has come, and goes on with what waits.
    void work();

    bool isIdle() const { return !m_current && m_queue.empty(); }
    const std::optional<agent::net::ErrorStatus>& lastAnswer() const { return m_last; }

private:
    struct Waiting {
        Request request;
        Time came;
        std::string identity;
        std::optional<std::uint64_t> set; ///< what the device's process calls it
        bool takenBack = false;
    };

    void receive();
    agent::net::ManagerRequest toManagerRequest(const Waiting& waiting) const;
    void begin();
    void finish();
    void answer(agent::net::ErrorStatus error);

    Machine& m_machine;
    Oracle& m_oracle;
    agent::Link m_link;
    agent::net::Snapshots m_snapshots;
    agent::net::Sets m_sets;
    std::deque<Waiting> m_queue;
    std::optional<Waiting> m_current;
    std::optional<agent::net::ErrorStatus> m_last;
    struct Answered {
        agent::net::ErrorStatus error;
        Time when;
    };
    std::map<std::string, Answered> m_answers; ///< by identity
};

} // namespace simulation
