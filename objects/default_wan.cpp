#include "objects/default_wan.h"

#include "base/Guard.h"
#include "client/Client.h"
#include "objects/default_bridge.h"
#include "objects/discard_untagged.h"
#include "objects/managed_objects.h"
#include "objects/vlan.h"
#include "objects/wan_interface.h"

#include <cstdio>

using namespace kavo::snmp;

namespace {

constexpr int kBridgeNames = 9; // "br1" to "br9"

// Finds a bridge name that is not taken. `length` is that of the name.
int findFreeName(char (&name)[15], int& length) {
    for (int k = 1; k <= kBridgeNames; ++k) {
        length = snprintf(name, sizeof name, "br%d", k);
        int id = 0;
        const int status = config_int_read_by_key(&id, "Bridge", "Id", "Name", name);
        if (status == CORVANTA_UNKNOWN_ROW)
            return CORVANTA_OK;
        TRY(status);
    }
    return CORVANTA_FAILED;
}

int createBridge(DefaultBridge& bridge) {
    char name[15];
    int length = 0;
    TRY(findFreeName(name, length));
    TRY(bridge.create());
    TRY(writeText({name, static_cast<std::size_t>(length)}, "Bridge", "Name", bridge.bridgeId));
    return applyDiscardSetting();
}

// Switches off the VLAN objects that have the interface as their WAN parent.
void switchOffUsers(std::string_view interface) {
    for (int vlanIndex = 1; isVlan(vlanIndex); ++vlanIndex) {
        InterfaceName parent;
        if (readVlanParent(parent.text, sizeof parent.text, &parent.length, vlanIndex) !=
            CORVANTA_OK)
            return;
        if (parent.is(interface))
            ignoreStatus(switchOffVlan(vlanIndex));
    }
}

int defaultWanInterface(access_type access, char* buffer, int bufferSize, int* length) {
    if (buffer == nullptr || length == nullptr)
        return CORVANTA_FAILED;
    if (access == access_get)
        return readDefaultWan(buffer, bufferSize, length);
    if (access != access_set) {
        DefaultBridge bridge;
        bridge.lookUp();
        return bridge.exists() ? CORVANTA_FAILED : CORVANTA_OK;
    }
    if (mgmt_o.cache == nullptr)
        return CORVANTA_FAILED;
    if (!isSafeValue(buffer, bufferSize, *length))
        return counted(CORVANTA_UNFIT);
    return setDefaultWan({buffer, static_cast<std::size_t>(*length)});
}

} // namespace

int kavo::snmp::setDefaultWan(std::string_view interface) {
    DefaultBridge bridge;
    bridge.lookUp();
    bool exists = bridge.exists();
    if (interface.empty() && exists) {
        ignoreStatus(bridge.remove());
        return CORVANTA_OK;
    }
    if (!interface.empty() && !exists) {
        TRY(createBridge(bridge));
        exists = true;
    }
    switchOffUsers(interface);
    return exists ? writeText(interface, "BridgeInterface", "Interface", bridge.wanIfaceId)
                  : CORVANTA_OK;
}

int VlanDefaultWanInterface(access_type access, char* buffer, int bufferSize, int* length) {
    return guardedStatus([=] { return defaultWanInterface(access, buffer, bufferSize, length); });
}
