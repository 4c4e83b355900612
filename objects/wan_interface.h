#pragma once

#include <cstddef>
#include <string_view>

/// Which WAN interface the default bridge and each VLAN object have. An interface serves one or the
/// other, so that whoever sets one of them reads both; that stands here, apart from the setting.
namespace kavo::snmp {

/// The name of a WAN interface, as far as it was read.
struct InterfaceName {
    char text[15] = "";
    int length = 0;

    bool is(std::string_view other) const {
        return std::string_view(text, static_cast<std::size_t>(length)) == other;
    }
};

/// Reads the default WAN interface. Without a default bridge nothing is read, which is no failure.
int readDefaultWan(char* buffer, int bufferSize, int* length);

/// Reads the WAN parent interface of a VLAN object.
int readVlanParent(char* buffer, int bufferSize, int* length, int vlanIndex);

} // namespace kavo::snmp
