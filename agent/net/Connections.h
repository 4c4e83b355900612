#pragma once

#include "agent/system/System.h"

namespace agent::net {

/// Limits the connections that anybody can make who reaches the address of an agent that listens
/// itself.
class Connections {
public:
    /// Leaves descriptors for what the agent itself needs, whoever connects.
    explicit Connections(const System& system);

    /// Ends connections that have been silent for too long, and of too many those that have been
    /// for longest. To be called often; looks a few times a second.
    void limit();

private:
    const System& m_system;
    Clock::time_point m_due;
};

} // namespace agent::net
