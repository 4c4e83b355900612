#include "objects/vlan.h"

#include "base/Guard.h"
#include "client/Client.h"
#include "objects/data_cache.h"
#include "objects/managed_objects.h"

#include <string>

using namespace kavo::snmp;

namespace {

// The client's commands; blanks count. A member is an interface attached to a bridge.
constexpr char kInsertLanNode[] =
    " quorlet \" insertkey NetworkSetupNode   Type text:VLAN   InterfaceName  text:%s"
    " ParentInterface text:%s    ConfigurationSpecifics text:  Enable integer:1  ;\" ";
constexpr char kInsertLanMember[] =
    " quorlet \" insertkey BridgeInterface  BridgeId integer:%d  Interface      text:%s"
    "  AllowLocalAccess integer:0  AllowDHCP integer:0 ;\" ";
constexpr char kInsertLanMemberNode[] =
    " quorlet \" insertkey NetworkSetupNode   Type text:BridgeInterface    InterfaceName text:%s%s"
    "   ParentInterface text:%s  ConfigurationSpecifics text:  Enable integer:1  ;\" ";
constexpr char kInsertEmptyMember[] =
    " quorlet \" insertkey BridgeInterface  BridgeId integer:%d  Interface text:"
    "  AllowLocalAccess integer:0  AllowDHCP integer:0 ;\" ";
constexpr char kInsertWanNode[] =
    " quorlet \"  insertkey   NetworkSetupNode  Type text:VLAN  InterfaceName  text:%s"
    " ParentInterface text:%s ConfigurationSpecifics text:  Enable integer:1  ;\" ";
constexpr char kInsertWanMemberNode[] =
    " quorlet \"  insertkey  NetworkSetupNode  Type text:BridgeInterface  "
    " InterfaceName   text:bridge:%s ParentInterface text:%s"
    " ConfigurationSpecifics text:  Enable integer:1  ;\" ";
constexpr char kInsertNetif[] = " quorlet \"  insertkey  StatusNetifConfig  Name text:%s ;\" ";

constexpr char kDeleteLanMemberNode[] =
    " quorlet \" deletekey    NetworkSetupNode ParentInterface  %s ;\" ";
constexpr char kDeleteMembers[] = " quorlet \" deletekey    BridgeInterface BridgeId %d ;\" ";
constexpr char kDeleteWanMemberNode[] =
    " quorlet \"  deletekey  NetworkSetupNode  InterfaceName        bridge:%s ;\" ";
constexpr char kDeleteNode[] = " quorlet \" deletekey NetworkSetupNode   InterfaceName  %s ;\" ";
constexpr char kDeleteNetif[] = " quorlet \"  deletekey  StatusNetifConfig  Name %s ;\" ";

constexpr char kLanPort[] = "eth0";
constexpr char kMemberPrefix[] = "bridge:"; // of a member's node

constexpr int kSnmpFalse = 2;

int lanRow(int vlanIndex) {
    return wanRow(vlanIndex) - 1;
}

// Takes the first free bridge slot.
int createBridge(data_cache& cache, int& bridgeId) {
    for (int slot = 1; slot <= data_cache::slotCount; ++slot) {
        if (cache.bridge_intern_Id_by_name_idx_get(bridgeId, slot) < 0)
            return cache.bridge_intern_Id_by_name_idx_create(bridgeId, slot);
    }
    return CORVANTA_FAILED;
}

// Builds the object's bridge: its LAN member, and an empty WAN member in the row after it.
int switchOn(data_cache& cache, const char* lanIface) {
    int bridgeId = 0;
    ShortAnswer answer;
    TRY(createBridge(cache, bridgeId));
    TRY(run(kTraced, answer, kInsertLanNode, lanIface, kLanPort));
    ignoreStatus(run(kQuiet, answer, kInsertNetif, lanIface));
    TRY(run(kTraced, answer, kInsertLanMember, bridgeId, lanIface));
    TRY(run(kTraced, answer, kInsertLanMemberNode, kMemberPrefix, lanIface, lanIface));
    return run(kTraced, answer, kInsertEmptyMember, bridgeId);
}

// Removes the object's bridge, once its WAN side is gone.
int switchOff(data_cache& cache, const char* lanIface) {
    int bridgeId = 0;
    ShortAnswer answer;
    if (const int status = run(kTraced, answer, kDeleteLanMemberNode, lanIface);
        status != CORVANTA_UNKNOWN_ROW && status != CORVANTA_OK)
        return status;
    TRY(config_int_read_by_key(&bridgeId, "BridgeInterface", "BridgeId", "Interface", lanIface));
    char name[15];
    int length = 0;
    TRY(config_string_access_by_id(access_get, name, sizeof name, &length, "Bridge", "Name",
                                   bridgeId));
    TRY(run(kTraced, answer, kDeleteMembers, bridgeId));
    TRY(run(kTraced, answer, kDeleteNode, lanIface));
    ignoreStatus(run(kQuiet, answer, kDeleteNetif, lanIface));
    ignoreStatus(cache.bridge_intern_Id_delete(bridgeId));
    return CORVANTA_OK;
}

void removeWanSide(const char* member, const char* wanIface) {
    ShortAnswer answer;
    ignoreStatus(run(kQuiet, answer, kDeleteWanMemberNode, member));
    ignoreStatus(run(kQuiet, answer, kDeleteNode, wanIface));
    ignoreStatus(run(kQuiet, answer, kDeleteNetif, wanIface));
}

// Makes the tagged interface, or its parent, the bridge's WAN member.
int setUpWanSide(int vlanIndex, int memberRow, bool tagged, const std::string& member,
                 const std::string& wanIface) {
    ShortAnswer answer;
    std::string parent;
    TRY(config_string_access_by_id(access_get, parent, "VLAN", "ParentIf", wanRow(vlanIndex)));
    if (tagged && member.empty()) {
        TRY(run(kQuiet, answer, kInsertWanNode, wanIface.c_str(), parent.c_str()));
        ignoreStatus(run(kQuiet, answer, kInsertNetif, wanIface.c_str()));
    }
    std::string newMember = tagged ? wanIface : parent;
    TRY(config_string_access_by_id(access_set, newMember, "BridgeInterface", "Interface",
                                   memberRow));
    ignoreStatus(run(kQuiet, answer, kInsertWanMemberNode, newMember.c_str(), newMember.c_str()));
    return CORVANTA_OK;
}

int setEnabled(data_cache& cache, int current, int requested, int vlanIndex) {
    if (requested == current)
        return CORVANTA_OK;
    TRY(cache.vlan_intern_Enable_set(requested, lanRow(vlanIndex)));
    std::string lanIface;
    cache.vlan_intern_InterfaceName_get(lanIface, lanRow(vlanIndex));
    if (current == 0 && requested == 1)
        TRY(switchOn(cache, lanIface.c_str()));
    TRY(rebuildWanSide(vlanIndex));
    return current == 1 && requested == 0 ? switchOff(cache, lanIface.c_str()) : CORVANTA_OK;
}

int setTagged(data_cache& cache, bool isOn, bool tagged, int vlanIndex) {
    TRY(cache.vlan_intern_Enable_set(tagged, wanRow(vlanIndex)));
    std::string lanIface;
    std::string wanIface;
    cache.vlan_intern_InterfaceName_get(lanIface, lanRow(vlanIndex));
    cache.vlan_intern_InterfaceName_get(wanIface, wanRow(vlanIndex));
    int lanMemberRow = 0;
    TRY(config_int_read_by_key(&lanMemberRow, "BridgeInterface", "Id", "Interface",
                               lanIface.c_str()));
    const int memberRow = nextRow(lanMemberRow);
    std::string member;
    TRY(config_string_access_by_id(access_get, member, "BridgeInterface", "Interface", memberRow));
    if (isOn)
        return setUpWanSide(vlanIndex, memberRow, tagged, member, wanIface);
    removeWanSide(member.c_str(), wanIface.c_str());
    return CORVANTA_OK;
}

int vlanEnabled(access_type access, int* value, int vlanIndex) {
    data_cache* const cache = mgmt_o.cache;
    if (value == nullptr || cache == nullptr || !isVlan(vlanIndex))
        return CORVANTA_FAILED;
    int current = 0;
    cache->vlan_intern_Enable_get(current, lanRow(vlanIndex));
    switch (access) {
    case access_get:
        *value = TruthValue_internal_to_snmp(current);
        return CORVANTA_OK;
    case access_set:
        return setEnabled(*cache, current, TruthValue_snmp_to_internal(*value), vlanIndex);
    default:
        return CORVANTA_OK;
    }
}

int vlanDiscardTag(access_type access, int* value, int vlanIndex) {
    data_cache* const cache = mgmt_o.cache;
    if (value == nullptr || cache == nullptr || !isVlan(vlanIndex))
        return CORVANTA_FAILED;
    int isOn = 0;
    int tagged = 0;
    cache->vlan_intern_Enable_get(isOn, lanRow(vlanIndex));
    cache->vlan_intern_Enable_get(tagged, wanRow(vlanIndex));
    switch (access) {
    case access_get:
        *value = TruthValue_internal_to_snmp(tagged == 0);
        return CORVANTA_OK;
    case access_set:
        return setTagged(*cache, isOn != 0, TruthValue_snmp_to_internal(*value) == 0, vlanIndex);
    default:
        return CORVANTA_OK;
    }
}

} // namespace

int kavo::snmp::rebuildWanSide(int vlanIndex) {
    int discardTag = 0;
    TRY(vlanDiscardTag(access_get, &discardTag, vlanIndex));
    return vlanDiscardTag(access_set, &discardTag, vlanIndex);
}

int kavo::snmp::switchOffVlan(int vlanIndex) noexcept {
    int off = kSnmpFalse;
    return guardedStatus([&] { return vlanEnabled(access_set, &off, vlanIndex); });
}

int VlanEnabled_snmp(access_type access, int* value, int vlanIndex) {
    return guardedStatus([=] { return vlanEnabled(access, value, vlanIndex); });
}

int VlanDiscardTag_snmp(access_type access, int* value, int vlanIndex) {
    return guardedStatus([=] { return vlanDiscardTag(access, value, vlanIndex); });
}
