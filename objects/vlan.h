#pragma once

/// What the other handlers need to know of VLAN objects, and what they do to them.
namespace kavo::snmp {

/// Number of VLAN objects; they count from 1.
constexpr int kVlanCount = 8;

inline bool isVlan(int vlanIndex) {
    return vlanIndex >= 1 && vlanIndex <= kVlanCount;
}

/// The `VLAN` row of an object's WAN side; the row before it is that of the LAN side.
inline int wanRow(int vlanIndex) {
    return static_cast<int>(2 * static_cast<unsigned int>(vlanIndex));
}

/// Sets up or removes a VLAN object's WAN side from its stored tag setting.
int rebuildWanSide(int vlanIndex);

/// Switches a VLAN object off. Its callers go on after a failure, so it throws nothing.
int switchOffVlan(int vlanIndex) noexcept;

} // namespace kavo::snmp
