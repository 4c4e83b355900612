#pragma once

#include "agent/net/Notifications.h"

namespace agent::net {

/// Sends a notification through the toolkit, with the objects that CORVANTA-MIB lists for it.
void send(const Notification& notification, const Snapshot& snapshot);

} // namespace agent::net
