#pragma once

namespace agent {

/// How the agent goes to the background, and tells whoever started it whether it works.
class Background {
public:
    /// Continues in a child process. The original process waits until the child calls
    /// tellStarted() or ends, and its exit status says which of the two it was.
    /// @return whether that could be done
    bool goToBackground();

    void tellStarted();

private:
    int m_starter = -1; ///< where the one that was started listens
};

/// Leaves the terminal, and logs no longer to standard error.
void leaveTerminal();

} // namespace agent
