#include "base/Guard.h"
#include "client/Client.h"
#include "objects/managed_objects.h"
#include "objects/vlan.h"

using namespace kavo::snmp;

namespace {

// Empties the default WAN interface when it is the given one.
int releaseDefault(std::string_view interface) {
    InterfaceName current;
    TRY(VlanDefaultWanInterface(access_get, current.text, sizeof current.text, &current.length));
    if (!current.is(interface))
        return CORVANTA_OK;
    InterfaceName none;
    return VlanDefaultWanInterface(access_set, none.text, sizeof none.text, &none.length);
}

int wanInterface(access_type access, char* buffer, int bufferSize, int* length, int vlanIndex) {
    if (buffer == nullptr || length == nullptr)
        return CORVANTA_FAILED;
    if (access == access_set && mgmt_o.cache == nullptr)
        return CORVANTA_FAILED;
    if (access == access_set) {
        if (!isVlan(vlanIndex))
            return CORVANTA_FAILED;
        if (!isSafeValue(buffer, bufferSize, *length))
            return counted(CORVANTA_UNFIT);
        TRY(releaseDefault({buffer, static_cast<std::size_t>(*length)}));
    }
    TRY(config_string_access_by_id(access, buffer, bufferSize, length, "VLAN", "ParentIf",
                                   wanRow(vlanIndex)));
    return access == access_set ? rebuildWanSide(vlanIndex) : CORVANTA_OK;
}

} // namespace

int VlanWanInterface(access_type access, char* buffer, int bufferSize, int* length, int vlanIndex) {
    return guardedStatus(
        [=] { return wanInterface(access, buffer, bufferSize, length, vlanIndex); });
}
