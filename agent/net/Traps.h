#pragma once

#include "agent/net/Notifications.h"

namespace agent::net {

/// Sends a notification by the toolkit, with the objects that CORVANTA-MIB says.
void send(const Notification& notification, const Snapshot& snapshot);

} // namespace agent::net
