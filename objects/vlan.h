#pragma once

namespace kavo::snmp {

/** Number of VLAN objects; they count from 1. */
constexpr int vlanCount = 8;

inline bool isVlan(int vlanIndex) {
    return vlanIndex >= 1 && vlanIndex <= vlanCount;
}

/** The `VLAN` row of an object's WAN side; the row before it is that of the LAN side. */
inline int wanRow(int vlanIndex) {
    return static_cast<int>(2 * static_cast<unsigned int>(vlanIndex));
}

/** Sets up or removes a VLAN object's WAN side from its stored tag setting. */
int rebuildWanSide(int vlanIndex);

} // namespace kavo::snmp
