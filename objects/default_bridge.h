#pragma once

namespace kavo::snmp {

/// The bridge that joins "eth0" with the default WAN interface, by its rows' Ids; see
/// default_Bridge(). An Id that is not found is -1.
struct DefaultBridge {
    int bridgeId = -1;
    int lanIfaceId = -1;
    int wanIfaceId = -1;
    int filterId = -1;

    bool exists() const { return wanIfaceId > 0; }

    void lookUp();

    /// Creates the bridge and its two members. After a failure the Ids are those made until then.
    [[nodiscard]] int create();

    /// Looks the bridge up anew and deletes its rows.
    [[nodiscard]] int remove();
};

} // namespace kavo::snmp
