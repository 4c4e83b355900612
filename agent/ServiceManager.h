#pragma once

#include <chrono>
#include <optional>

/// The service manager that has started the agent, if any has.
namespace agent {

/// Tells it a state, such as "READY=1", if it wants to know.
void notifyServiceManager(const char* state);

/// The longest that it waits to be told that the agent works; nothing when it does not watch.
std::optional<std::chrono::microseconds> watchdogLimit();

} // namespace agent
