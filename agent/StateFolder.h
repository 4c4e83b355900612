#pragma once

#include <chrono>
#include <string>

namespace agent {

/// Makes the folder of what must outlive a restart, for one agent alone. Clients
/// inherit the lock: it is free once those of an agent before have ended too, so
/// that none of them changes a row behind the next one's back.
/// @param path   made absolute, since the toolkit looks it up from the root
/// @param limit  for a client of an agent before; then it is killed
/// @return what is wrong; empty when nothing is
std::string prepareState(std::string& path, std::chrono::seconds limit);

/// Makes the folder and what is in it somebody's. @return whether that could be done
bool giveState(const std::string& path, unsigned user, unsigned group);

} // namespace agent
