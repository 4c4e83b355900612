#pragma once

#include "agent/Options.h"

/// What Net-SNMP has to be told before and after it serves requests.
namespace agent::toolkit {

/// Sets the toolkit up as a subagent or a master; objects are registered next.
void prepare(const Options& options);

/// Reads the configuration and connects to the master, or opens the master's port, once what must
/// outlive a restart is stored.
/// @return whether that could be done; a subagent goes on trying to connect
bool open(const Options& options);

/// Whether the master has refused the objects: somebody else serves them.
bool isRefused();

/// Says in the log what keeps a subagent from its master, once. To be called often.
void watchMaster(const Options& options);

/// Stores what managers have changed of the toolkit's own objects, such as sysName.
void storeChanges();

void close();

} // namespace agent::toolkit
