#pragma once

#include "agent/Options.h"
#include "agent/system/System.h"

#include <optional>
#include <string>

namespace agent {

/// Makes the folder of what must outlive a restart, and keeps other agents out of it.
/// @param path  made absolute, since the SNMP toolkit looks it up from the root
/// @return what is wrong; empty when nothing is
std::string prepareState(std::string& path);

/// Waits until the clients of an earlier device process have ended, so that none of them changes a
/// row behind the back of this one. Each client inherits the lock that this waits for. Those that
/// take longer than the limit are killed.
/// @param system  tells when this process has to stop, which ends the wait at once
/// @return nothing when this process has the device to itself; else its exit status
std::optional<int> awaitClients(const Options& options, System& system);

} // namespace agent
