#pragma once

#include "agent/Background.h"
#include "agent/Child.h"
#include "agent/Options.h"
#include "agent/system/RealSystem.h"

#include <array>
#include <chrono>
#include <string>

namespace agent {

/// The agent is three processes: corvantad-net faces the network and cannot start programs,
/// corvantad-dev owns the device, and their parent, this one, starts both and does nothing else.
class Supervisor {
public:
    /// What a process does; the network process shows life first when it is ready to serve.
    using Work = int (*)(const Options& options, const Ends& ends);

    Supervisor(const Options& options, Work net, Work dev);

    /// Runs both until a signal ends the agent, or one of them gives up; starts again what a
    /// signal has ended, and what gives no sign of life any more.
    /// @return the exit status
    int run();

private:
    bool open();
    bool openLink();
    void awaitEvents() const;
    void readSignals();
    void becomeReady();
    void watch();
    void watchLink();
    void reap();
    void startDue();
    bool stopChildren();
    void fail(const std::string& text);

    const Options& m_options;
    Background m_background;
    int m_signals = -1;
    std::array<int, 2> m_link{-1, -1};
    Child m_net;
    Child m_dev;
    std::chrono::steady_clock::time_point m_beatDue;
    bool m_ready = false; ///< the network process serves, or did so once
    bool m_stopping = false;
    bool m_stopTold = false; ///< to the service manager
    int m_result = 0;
};

} // namespace agent
