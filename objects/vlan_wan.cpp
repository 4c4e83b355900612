#include "base/Guard.h"
#include "client/Client.h"
#include "objects/default_wan.h"
#include "objects/managed_objects.h"
#include "objects/vlan.h"
#include "objects/wan_interface.h"

using namespace kavo::snmp;

namespace {

// Empties the default WAN interface when it is the given one.
int releaseDefault(std::string_view interface) {
    InterfaceName current;
    TRY(readDefaultWan(current.text, sizeof current.text, &current.length));
    return current.is(interface) ? setDefaultWan({}) : CORVANTA_OK;
}

int wanInterface(access_type access, char* buffer, int bufferSize, int* length, int vlanIndex) {
    if (buffer == nullptr || length == nullptr)
        return CORVANTA_FAILED;
    if (access == access_get)
        return readVlanParent(buffer, bufferSize, length, vlanIndex);
    if (access != access_set || mgmt_o.cache == nullptr || !isVlan(vlanIndex))
        return CORVANTA_FAILED;
    if (!isSafeValue(buffer, bufferSize, *length))
        return counted(CORVANTA_UNFIT);
    const std::string_view interface(buffer, static_cast<std::size_t>(*length));
    TRY(releaseDefault(interface));
    TRY(writeText(interface, "VLAN", "ParentIf", wanRow(vlanIndex)));
    return rebuildWanSide(vlanIndex);
}

} // namespace

int VlanWanInterface(access_type access, char* buffer, int bufferSize, int* length, int vlanIndex) {
    return guardedStatus(
        [=] { return wanInterface(access, buffer, bufferSize, length, vlanIndex); });
}
