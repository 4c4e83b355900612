#pragma once

#include "agent/Options.h"
#include "agent/system/System.h"

#include <optional>
#include <string>

namespace agent {

/// Makes the folder of what must outlive a restart, with one in it for each process, and keeps
/// other agents out of it. What an earlier version has left in it goes to its process.
/// @param path  made absolute, since the SNMP toolkit looks it up from the root
/// @return what is wrong; empty when nothing is
std::string prepareState(std::string& path);

/// What the process that faces the network keeps, and may write; and what the device's keeps.
std::string netFolder(const Options& options);
std::string devFolder(const Options& options);

/// Opens the file that each client of the database has locked while it runs.
/// @return -1 when that can't be done, which is logged
int openClientLock(const Options& options);

/// Waits until the client of an earlier device process has ended, so that it changes no row behind
/// the back of this one. The process group of one that takes longer than the limit is killed.
/// @param lock    of the clients
/// @param system  shows life meanwhile, and tells when this process has to stop, which ends the
///                wait at once
/// @return nothing when this process has the device to itself; else its exit status
std::optional<int> awaitClients(const Options& options, int lock, System& system);

} // namespace agent
