#pragma once

#include "agent/Options.h"
#include "agent/system/System.h"

#include <functional>
#include <optional>
#include <string>

namespace agent::net {

/// The master that a subagent is connected to, or tries to be.
class Master {
public:
    /// @param onChange  called when the connection is there, or is lost
    Master(const Options& options, const System& system, std::function<void(bool there)> onChange);
    ~Master();
    Master(const Master&) = delete;
    Master& operator=(const Master&) = delete;

    /// Logs, once, what keeps the agent from reaching it. To be called often.
    void watch();

private:
    template <bool there>
    static int onConnection(int, int, void*, void*);
    std::string problem() const;

    const Options& m_options;
    const System& m_system;
    const std::function<void(bool)> m_onChange;
    bool m_connected = false;
    std::optional<bool> m_watched; ///< whether it was connected when that was last looked at
    std::string m_told;            ///< what was wrong
    Clock::time_point m_due;
};

constexpr int kMasterPause = 2; ///< seconds between attempts to reach it

} // namespace agent::net
