#pragma once

namespace agent {

/// How the agent leaves whoever started it from a shell.
class Background {
public:
    /// Goes on in a process of its own. The one that was started waits for tellStarted(), or for
    /// the end of this one, and tells by its exit status which of them it was.
    /// @return whether that could be done
    bool goToBackground();

    void tellStarted();

private:
    int m_starter = -1; ///< where the one that was started listens
};

/// Leaves the terminal, and logs no longer to standard error.
void leaveTerminal();

} // namespace agent
