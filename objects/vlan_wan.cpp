#include "frame/Failures.h"
#include "frame/Guard.h"
#include "objects/client.h"
#include "objects/managed_objects.h"
#include "objects/vlan.h"

#include <cstdio>
#include <cstring>
#include <string_view>

using namespace kavo::snmp;

namespace {

// The client's commands; blanks count.
constexpr char deleteFilter[] = " quorlet \" deletekey  BridgeFilter  BridgeId         %d  ;\" ";
constexpr char insertFilter[] =
    " quorlet \" insertkey  BridgeFilter  BridgeId integer:%d  FilterRule text:"
    "  VLANId integer:0  PBit integer:0 ;\" ";

constexpr std::string_view deleted = "Operation succeeded"; // the client's answer to a delete

constexpr int bridgeNames = 9; // "br1" to "br9"
constexpr int snmpFalse = 2;

struct DefaultBridge {
    int bridgeId = -1;
    int lanIfaceId = -1;
    int wanIfaceId = -1;
    int filterId = -1;

    int access(access_type access) {
        return default_Bridge(access, &bridgeId, &lanIfaceId, &wanIfaceId, &filterId);
    }
};

// The text of an interface's column, as far as it was read.
struct InterfaceName {
    char text[15] = "";
    int length = 0;

    bool is(const char* buffer, int bufferLength) const {
        return length == bufferLength &&
               memcmp(text, buffer, static_cast<std::size_t>(length)) == 0;
    }
};

// Finds a bridge name that is not taken. `length` is that of the name.
template <int size>
int findFreeName(char (&name)[size], int& length) {
    for (int k = 1; k <= bridgeNames; ++k) {
        length = snprintf(name, size, "br%d", k);
        int id = 0;
        const int status = config_int_read_by_key(&id, "Bridge", "Id", "Name", name);
        if (status == CORVANTA_UNKNOWN_ROW)
            return CORVANTA_OK;
        if (status != CORVANTA_OK)
            return status;
    }
    return CORVANTA_FAILED;
}

int applyDiscardSetting() {
    int discard = 0;
    if (const int status = VlanDiscardUntaggedFrames_snmp(access_get, &discard))
        return status;
    return VlanDiscardUntaggedFrames_snmp(access_set, &discard);
}

int createDefaultBridge(DefaultBridge& bridge) {
    char name[15];
    int length = 0;
    if (const int status = findFreeName(name, length))
        return status;
    if (const int status = bridge.access(access_create))
        return status;
    if (const int status = config_string_access_by_id(access_set, name, sizeof name, &length,
                                                      "Bridge", "Name", bridge.bridgeId))
        return status;
    return applyDiscardSetting();
}

// Switches off the VLAN objects that have the interface as their WAN parent.
void switchOffUsers(const char* buffer, int length) {
    for (int vlanIndex = 1; isVlan(vlanIndex); ++vlanIndex) {
        InterfaceName parent;
        if (VlanWanInterface(access_get, parent.text, sizeof parent.text, &parent.length,
                             vlanIndex) != CORVANTA_OK)
            return;
        int off = snmpFalse;
        if (parent.is(buffer, length))
            ignoreStatus(VlanEnabled_snmp(access_set, &off, vlanIndex));
    }
}

int defaultWanInterface(access_type access, char* buffer, int bufferSize, int* length) {
    if (buffer == nullptr || length == nullptr || mgmt_o.cache == nullptr)
        return CORVANTA_FAILED;
    if (access == access_set && !isSafeValue(buffer, bufferSize, *length))
        return counted(CORVANTA_UNFIT);

    DefaultBridge bridge;
    ignoreStatus(bridge.access(access_get)); // what is not found is -1
    bool exists = bridge.wanIfaceId > 0;
    const auto accessInterface = [&] {
        return config_string_access_by_id(access, buffer, bufferSize, length, "BridgeInterface",
                                          "Interface", bridge.wanIfaceId);
    };
    if (access != access_set)
        return exists ? accessInterface() : CORVANTA_OK;

    if (*length == 0 && exists) {
        ignoreStatus(bridge.access(access_delete));
        return CORVANTA_OK;
    }
    if (*length != 0 && !exists) {
        if (const int status = createDefaultBridge(bridge))
            return status;
        exists = true;
    }
    switchOffUsers(buffer, *length);
    return exists ? accessInterface() : CORVANTA_OK;
}

// Empties the default WAN interface when it is the given one.
int releaseDefault(const char* buffer, int length) {
    InterfaceName current;
    if (const int status =
            VlanDefaultWanInterface(access_get, current.text, sizeof current.text, &current.length))
        return status;
    if (!current.is(buffer, length))
        return CORVANTA_OK;
    InterfaceName none;
    return VlanDefaultWanInterface(access_set, none.text, sizeof none.text, &none.length);
}

int wanInterface(access_type access, char* buffer, int bufferSize, int* length, int vlanIndex) {
    if (buffer == nullptr || length == nullptr || mgmt_o.cache == nullptr)
        return CORVANTA_FAILED;
    if (access == access_set) {
        if (!isVlan(vlanIndex))
            return CORVANTA_FAILED;
        if (!isSafeValue(buffer, bufferSize, *length))
            return counted(CORVANTA_UNFIT);
        if (const int status = releaseDefault(buffer, *length))
            return status;
    }
    const int status = config_string_access_by_id(access, buffer, bufferSize, length, "VLAN",
                                                  "ParentIf", wanRow(vlanIndex));
    if (access != access_set || status != CORVANTA_OK)
        return status;
    return rebuildWanSide(vlanIndex);
}

int setDiscard(int requested) {
    DefaultBridge bridge;
    ignoreStatus(bridge.access(access_get)); // what is not found is -1
    Reply reply;
    if (requested == 0 && bridge.filterId > 0) {
        if (const int status = runTraced(reply, deleteFilter, bridge.bridgeId))
            return status;
        if (reply.text != deleted)
            return CORVANTA_FAILED;
    } else if (requested != 0 && bridge.filterId <= 0 && bridge.bridgeId > 0) {
        if (const int status = runTraced(reply, insertFilter, bridge.bridgeId))
            return status;
        if (!reply.number())
            return CORVANTA_FAILED;
    }
    return config_int_access_by_id(access_set, &requested, "VLANSingleParams",
                                   "DiscardUntaggedFrames", 1);
}

int discardUntaggedFrames(access_type access, int* value) {
    if (value == nullptr)
        return CORVANTA_FAILED;
    if (access == access_set)
        return setDiscard(TruthValue_snmp_to_internal(*value));
    int discard = 0;
    const int status =
        config_int_access_by_id(access, &discard, "VLANSingleParams", "DiscardUntaggedFrames", 1);
    if (status == CORVANTA_OK && access == access_get)
        *value = TruthValue_internal_to_snmp(discard);
    return status;
}

} // namespace

int VlanDefaultWanInterface(access_type access, char* buffer, int bufferSize, int* length) {
    return guardedStatus([=] { return defaultWanInterface(access, buffer, bufferSize, length); });
}

int VlanWanInterface(access_type access, char* buffer, int bufferSize, int* length, int vlanIndex) {
    return guardedStatus(
        [=] { return wanInterface(access, buffer, bufferSize, length, vlanIndex); });
}

int VlanDiscardUntaggedFrames_snmp(access_type access, int* value) {
    return guardedStatus([=] { return discardUntaggedFrames(access, value); });
}
