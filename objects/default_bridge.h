#pragma once

#include <corvanta.h>

namespace kavo::snmp {

/// The bridge that joins "eth0" with the default WAN interface, by its rows' Ids; see
/// default_Bridge(). An Id that is not found is -1.
struct DefaultBridge {
    int bridgeId = -1;
    int lanIfaceId = -1;
    int wanIfaceId = -1;
    int filterId = -1;

    [[nodiscard]] int access(access_type access) {
        return default_Bridge(access, &bridgeId, &lanIfaceId, &wanIfaceId, &filterId);
    }
};

} // namespace kavo::snmp
