#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

/// The agent is three processes: the one that faces the network, which cannot
/// start programs; the one that owns the device; and the one that the others
/// were started by, which does nothing but that.
namespace agent {

struct Children {
    /// Faces the network. It tells that it is ready to serve, and from then on, once in a while,
    /// that both sides work, by writing a byte to `alive`.
    std::function<int(int link, int alive, int stop)> front;
    /// Owns the device.
    std::function<int(int link, int stop)> back;
    /// Gives up privileges.
    std::function<bool()> drop;
    bool foreground;
};

/// Runs both until a signal ends the agent, and starts one that dies again. What
/// each gets is its end of the link, and a descriptor that is readable when it has to stop.
/// @return the exit status
int supervise(const Children& program);

/// How often the front should tell that both sides work; nothing when nobody wants to know.
std::optional<std::chrono::microseconds> watchdogBeat();

/// Leaves the terminal to whoever started the agent.
void leaveTerminal();

} // namespace agent
