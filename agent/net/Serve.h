#pragma once

#include "agent/Options.h"

#include <functional>

/// The process that faces the network, corvantad-net.
namespace agent::net {

/// What its parent gives it.
struct Start {
    int link;  ///< its end of the link to the device's process
    int alive; ///< takes a byte when it is ready, and whenever both processes are seen to work
    int stop;  ///< readable when it has to stop
    std::function<bool()> dropPrivileges;
    std::function<void()> leaveTerminal;
};

/// Serves requests until it has to stop.
/// @param options  whose state folder is this process's own
/// @return the exit status
int serve(const Options& options, const Start& start);

} // namespace agent::net
