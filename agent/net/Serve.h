#pragma once

#include "agent/Options.h"
#include "agent/system/RealSystem.h"

#include <functional>

/// The process that faces the network, corvantad-net.
namespace agent::net {

/// What its parent gives it.
struct Start {
    Ends ends;
    std::function<bool()> dropPrivileges;
    std::function<void()> leaveTerminal;
};

/// Serves requests until it has to stop.
/// @param options  whose state folder is this process's own
/// @return the exit status
int serve(const Options& options, const Start& start);

} // namespace agent::net
