#pragma once

#include <chrono>

namespace agent {

/// Limits what strangers can use up who reach the address of an agent that
/// listens itself: connections, and lines in the log.
class Strangers {
public:
    using Clock = std::chrono::steady_clock;

    /// Leaves descriptors for what the agent itself needs, whoever connects.
    Strangers();

    /// Ends connections that have been silent for too long, and of too many those that have been
    /// for longest. To be called often; looks a few times a second.
    void limitConnections();

private:
    Clock::time_point m_due;
};

/// Lets a number of lines a minute through, and tells how many it has kept back.
class LineLimit {
public:
    /// @return how many lines were kept back before this one, or -1 to keep it back too
    int pass();

private:
    std::chrono::steady_clock::time_point m_end;
    int m_lines = 0;
};

} // namespace agent
