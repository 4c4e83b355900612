#pragma once

#include "agent/net/ManagerRequest.h"
#include "agent/system/System.h"

#include <string>

namespace agent::net {

/// Logs who has changed what: one line for each set that was made or refused, and for each change
/// on trial that was taken back.
class SetLog {
public:
    explicit SetLog(const System& system) : m_system(system) {}

    /// The request that the next line is about.
    void begin(const ManagerRequest& request, const View& view);

    /// Logs what became of it.
    void end(const std::string& outcome, ErrorStatus error = ErrorStatus::noError);

    /// The same for a result of the device process.
    void end(const SetRequest& set, const SetResult& result);

    /// Logs a change that was taken back between two snapshots, if one was, without a set.
    void reverts(const Snapshot& before, const Snapshot& now);

private:
    const System& m_system;
    std::string m_request; ///< who sets what
    Clock::time_point m_came;
    std::string m_onTrial; ///< the set whose change is pending
};

} // namespace agent::net
