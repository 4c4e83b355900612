#include "base/Guard.h"
#include "client/Client.h"
#include "objects/default_bridge.h"
#include "objects/managed_objects.h"
#include "objects/vlan.h"

#include <cstdio>

using namespace kavo::snmp;

namespace {

constexpr int kBridgeNames = 9; // "br1" to "br9"
constexpr int kSnmpFalse = 2;

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
    int discard = 0;
    TRY(findFreeName(name, length));
    TRY(bridge.access(access_create));
    TRY(config_string_access_by_id(access_set, name, sizeof name, &length, "Bridge", "Name",
                                   bridge.bridgeId));
    TRY(VlanDiscardUntaggedFrames_snmp(access_get, &discard));
    return VlanDiscardUntaggedFrames_snmp(access_set, &discard);
}

// Switches off the VLAN objects that have the interface as their WAN parent.
void switchOffUsers(std::string_view interface) {
    for (int vlanIndex = 1; isVlan(vlanIndex); ++vlanIndex) {
        InterfaceName parent;
        if (VlanWanInterface(access_get, parent.text, sizeof parent.text, &parent.length,
                             vlanIndex) != CORVANTA_OK)
            return;
        int off = kSnmpFalse;
        if (parent.is(interface))
            ignoreStatus(VlanEnabled_snmp(access_set, &off, vlanIndex));
    }
}

int defaultWanInterface(access_type access, char* buffer, int bufferSize, int* length) {
    if (buffer == nullptr || length == nullptr)
        return CORVANTA_FAILED;
    if (access == access_set && mgmt_o.cache == nullptr)
        return CORVANTA_FAILED;
    if (access == access_set && !isSafeValue(buffer, bufferSize, *length))
        return counted(CORVANTA_UNFIT);

    DefaultBridge bridge;
    ignoreStatus(bridge.access(access_get));
    bool exists = bridge.wanIfaceId > 0;
    if (access == access_set) {
        if (*length == 0 && exists) {
            ignoreStatus(bridge.access(access_delete));
            return CORVANTA_OK;
        }
        if (*length != 0 && !exists) {
            TRY(createBridge(bridge));
            exists = true;
        }
        switchOffUsers({buffer, static_cast<std::size_t>(*length)});
    }
    if (!exists)
        return CORVANTA_OK;
    return config_string_access_by_id(access, buffer, bufferSize, length, "BridgeInterface",
                                      "Interface", bridge.wanIfaceId);
}

} // namespace

int VlanDefaultWanInterface(access_type access, char* buffer, int bufferSize, int* length) {
    return guardedStatus([=] { return defaultWanInterface(access, buffer, bufferSize, length); });
}
