#pragma once

#include "agent/net/ManagerRequest.h"

#include <cstddef>
#include <list>
#include <optional>
#include <string>

namespace agent::net {

/// The answers to the sets of the last minute. A manager that has not received its answer sends the
/// same request again, perhaps after sets of others: it must get the same answer, and the set must
/// not be made twice.
class Answers {
public:
    /// Makes room for one more, for which those to sets that were refused before anything happened
    /// may be forgotten, the oldest first.
    /// @return whether there is room; else a set had better not be made
    bool makeRoom(const ManagerRequest& request);

    /// @param asked  whether the device's process was asked for the set: it may have been made
    void remember(const ManagerRequest& request, const Answer& answer, Clock::time_point now,
                  bool asked);

    /// The answer to the same request, given within the minute before this one; nothing without
    /// one.
    std::optional<Answer> find(const ManagerRequest& request) const;

    /// Forgets what was answered to this sender under this request's Id, which it now uses for
    /// other values: if the first values come again, they are to be set.
    void forget(const ManagerRequest& request);

    /// Forgets the answers that are too old for any request that arrived after a time.
    void forgetBefore(Clock::time_point came);

private:
    struct Entry {
        std::string sender;
        std::string identity;
        Answer answer;
        Clock::time_point when;
        bool asked;
    };
    using Entries = std::list<Entry>;

    Entries::iterator erase(Entries::iterator entry);

    Entries m_entries; ///< in order of time
    std::size_t m_bytes = 0;
};

} // namespace agent::net
