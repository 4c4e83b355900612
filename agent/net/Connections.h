#pragma once

#include "agent/system/System.h"

namespace agent::net {

/// Limits the connections to an agent that listens itself: anybody who reaches its address can open
/// them. They don't block: an answer that doesn't fit into a connection is lost, and it is closed.
class Connections {
public:
    /// Leaves descriptors for what the agent itself needs, whoever connects.
    explicit Connections(const System& system);

    /// Closes connections whose answers aren't read, that have been silent for too long and, when
    /// there are too many, those that have been silent longest. To be called often; it acts some
    /// times a second.
    void limit();

private:
    const System& m_system;
    Clock::time_point m_due;
};

} // namespace agent::net
