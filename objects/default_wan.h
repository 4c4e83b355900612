#pragma once

#include <string_view>

namespace kavo::snmp {

/// Makes an interface the default WAN interface. None deletes the default bridge, or where there is
/// no such bridge switches off the VLAN objects that have no WAN parent.
int setDefaultWan(std::string_view interface);

} // namespace kavo::snmp
