#pragma once

#include "agent/Options.h"

namespace agent {

/// Gives the state folder to the user that the options name, and becomes that user for good. Does
/// nothing where they name none, or the process is that user already.
/// @return whether that could be done; else it is logged
bool dropPrivileges(const Options& options);

} // namespace agent
