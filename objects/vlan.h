#pragma once

#include <string_view>

/// What the handlers of VLAN objects and of the default WAN interface share.
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

/// The name of a WAN interface, as far as it was read.
struct InterfaceName {
    char text[15] = "";
    int length = 0;

    bool is(std::string_view other) const {
        return std::string_view(text, static_cast<std::size_t>(length)) == other;
    }
};

} // namespace kavo::snmp
