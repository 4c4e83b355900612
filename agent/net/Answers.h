#pragma once

#include "agent/net/ManagerRequest.h"

#include <deque>
#include <optional>
#include <string>

namespace agent::net {

/// The answers to the sets of the last minute. A manager that has not received its answer sends the
/// same request again, after sets of others perhaps: it must get the same answer, and the set must
/// not be made twice.
class Answers {
public:
    void remember(const ManagerRequest& request, const Answer& answer, Clock::time_point now);

    /// The answer of a minute at most before the request came; nothing when there is none.
    std::optional<Answer> find(const ManagerRequest& request) const;

    /// Forgets the answers to the sender of a request that uses their Id for another one now: when
    /// it goes back to the values of the first, it wants them made.
    void forget(const ManagerRequest& request);

    /// Forgets what no request can be answered with that came after a time.
    void forgetBefore(Clock::time_point came);

private:
    struct Entry {
        std::string sender;
        std::string identity;
        Answer answer;
        Clock::time_point when;
    };
    std::deque<Entry> m_entries; ///< in order of time
};

} // namespace agent::net
