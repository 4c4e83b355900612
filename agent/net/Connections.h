#pragma once

#include <chrono>

namespace agent {

/// Limits what strangers can use up who reach the address of an agent that
/// listens itself: connections, and lines in the log.
class Connections {
public:
    using Clock = std::chrono::steady_clock;

    /// Leaves descriptors for what the agent itself needs, whoever connects.
    Connections();

    /// Ends connections that have been silent for too long, and of too many those that have been
    /// for longest. To be called often; looks a few times a second.
    void limitConnections();

private:
    Clock::time_point m_due;
};

} // namespace agent
