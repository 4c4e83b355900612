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

    /// A request that the lines to come are about.
    void begin(const ManagerRequest& request, const View& view);

    /// What became of it.
    void end(const std::string& outcome, ErrorStatus error = ErrorStatus::noError);

    /// Likewise, as the device's process tells.
    void end(const SetRequest& set, const SetResult& result);

    /// What has been taken back without another set, if anything has between two snapshots.
    void reverts(const Snapshot& before, const Snapshot& now);

private:
    const System& m_system;
    std::string m_request; ///< who sets what
    Clock::time_point m_came;
    std::string m_onTrial; ///< who has set what, of the change that is pending
};

} // namespace agent::net
