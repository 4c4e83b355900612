#pragma once

#include "agent/Options.h"

namespace agent {

/// Keeps other processes of the same user out of the memory of this one, and of those it starts as
/// processes of the agent: whoever takes over one could get into another by it.
void keepMemoryPrivate();

/// Gives each part of the state folder to the user who has to write it, where the options name any.
/// Others than root have nothing to give.
/// @return whether that could be done; else it is logged
bool giveState(const Options& options);

/// Becomes, for good, the user who owns the device, or who faces the network. Does nothing where
/// the options name none, or the process is that user already.
/// @return whether that could be done; else it is logged
bool becomeDevUser(const Options& options);
bool becomeNetUser(const Options& options);

} // namespace agent
