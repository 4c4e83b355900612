#pragma once

#include "agent/Background.h"
#include "agent/Child.h"
#include "agent/Options.h"

#include <array>
#include <string>

namespace agent {

/// The agent is three processes: corvantad-net faces the network and cannot start programs,
/// corvantad-dev owns the device, and their parent, this one, starts both and does nothing else.
class Supervisor {
public:
    /// What the network process does. It writes a byte to `alive` when it is ready to serve, and
    /// from then on each time that it has heard from the device process.
    using Net = int (*)(const Options& options, int link, int alive, int stop);
    /// What the device process does.
    using Dev = int (*)(const Options& options, int link, int stop);

    /// Both get their end of the link, and a descriptor that is readable when they have to stop.
    Supervisor(const Options& options, Net net, Dev dev);

    /// Runs both until a signal ends the agent, or one of them gives up; starts again what a
    /// signal has ended.
    /// @return the exit status
    int run();

private:
    bool open();
    void awaitEvents() const;
    void readSignals();
    void readAlive();
    void becomeReady();
    void reap();
    void startDue();
    bool stopChildren();
    void fail(const std::string& text);

    const Options& m_options;
    Background m_background;
    int m_signals = -1;
    std::array<int, 2> m_link{};
    std::array<int, 2> m_alive{};
    Child m_net;
    Child m_dev;
    bool m_ready = false; ///< the network process serves, or did so once
    bool m_stopping = false;
    bool m_stopTold = false; ///< to the service manager
    int m_result = 0;
};

} // namespace agent
