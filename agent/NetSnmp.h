#pragma once

#include "Options.h"

/// What Net-SNMP has to be told before and after it serves requests.
namespace agent::netsnmp {

/// Sets the toolkit up as a subagent or a master; objects are registered next.
void prepare(const Options& options);

/// Reads the configuration and connects to the master, or opens the master's port.
/// @return whether the port could be opened; a subagent goes on trying to connect
bool open(const Options& options);

void close();

} // namespace agent::netsnmp
