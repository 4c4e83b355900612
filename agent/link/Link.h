#pragma once

#include "agent/Log.h"
#include "agent/link/Messages.h"
#include "agent/system/System.h"

namespace agent {

/// Messages to and from the other process.
class Link {
public:
    explicit Link(System& system) : m_system(system) {}

    /// Sends a message, or drops it when the other process has fallen far behind: the next
    /// snapshot, or a deadline, makes up for it.
    void send(const Message& message) { m_system.send(pack(message)); }

    /// @return nothing when there is none for now, or one that is not understood
    std::optional<Message> receive();

private:
    System& m_system;
    LineLimit m_lines; ///< the other process may have been taken over
};

} // namespace agent
