#pragma once

#include <chrono>
#include <string>

namespace agent {

/// Makes the folder of what must outlive a restart, for one agent alone.
/// @param path  made absolute, since the toolkit looks it up from the root
/// @return what is wrong; empty when nothing is
std::string prepareState(std::string& path);

/// Waits until the clients of a process that owned the device before have ended, so that none
/// changes a row behind the back of this one. Its own inherit the lock.
/// @param limit  for those; then they are killed
/// @return what is wrong; empty when nothing is
std::string awaitClients(const std::string& path, std::chrono::seconds limit);

} // namespace agent
