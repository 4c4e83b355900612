#include "objects/data_cache.h"

#include "base/Guard.h"
#include "client/Client.h"
#include "frame/Wrapper.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace kavo::snmp;

namespace {

// The client's commands; blanks count.
constexpr char kReadAtmRow[] =
    " quorlet \"  selectkey Atm Id %d Enabled DeviceName Vpi Vci FcsPreserve  ;\" ";
constexpr char kWriteAtmVpi[] = " quorlet \"  updatekey Atm Id %d Vpi integer:%d ;\" ";
constexpr char kWriteAtmVci[] = " quorlet \"  updatekey Atm Id %d Vci integer:%d ;\" ";
constexpr char kReadMemberId[] = " quorlet \"  selectrow BridgeInterface %d Id  ;\" ";
constexpr char kReadMemberBridge[] = " quorlet \"  selectkey BridgeInterface Id %s BridgeId  ;\" ";
constexpr char kReadMemberInterface[] =
    " quorlet \"  selectkey BridgeInterface Id %s Interface  ;\" ";
constexpr char kInsertBridge[] =
    " quorlet \"  insertkey  Bridge  Name text:%s Stp integer:0   ;\" ";
constexpr char kInsertBridgeNode[] =
    " quorlet \"  insertkey   NetworkSetupNode  Type text:Bridge  InterfaceName text:%s"
    " ParentInterface text:root   ConfigurationSpecifics text:  Enable integer:1  ;\" ";
constexpr char kDeleteBridgeNode[] =
    " quorlet \"  deletekey   NetworkSetupNode  InterfaceName %s ;\" ";
constexpr char kDeleteBridge[] = " quorlet \"  deletekey  Bridge  Id %d ;\" ";

// The columns of kReadAtmRow's answer.
enum AtmColumn { columnEnabled, columnDeviceName, columnVpi, columnVci, columnFcs, atmColumns };

bool isVlanRow(int index) {
    return index >= 1 && index <= data_cache::vlanRowCount;
}
bool isSlot(int slot) {
    return slot >= 1 && slot <= data_cache::slotCount;
}

atm_entry toAtmEntry(const std::vector<std::string>& columns) {
    const auto number = [&](AtmColumn column) { return parseInt(columns[column]).value_or(0); };
    atm_entry entry = {};
    const std::optional<int> enabled = parseInt(columns[columnEnabled]);
    entry.Enabled = enabled ? TruthValue_internal_to_snmp(*enabled) : 0;
    columns[columnDeviceName].copy(entry.DeviceName, sizeof entry.DeviceName - 1);
    entry.Vpi = number(columnVpi);
    entry.Vci = number(columnVci);
    entry.FcsPreserve = number(columnFcs);
    return entry;
}

} // namespace

data_cache::data_cache() = default;

data_cache::~data_cache() = default;

void data_cache::init() {
    std::fill(std::begin(atm), std::end(atm), atm_entry{});
    for (int slot = 1; slot <= slotCount; ++slot)
        bridge[slot].name = format("br%d", slot);
}

void data_cache::update() {
    loadAtm();
    loadBridges();
    loadBridgeMembers();
    loadVlans();
}

void data_cache::loadAtm() {
    Wrapper* const wrapper =
        guarded([] { return Wrapper::getInstance(); }, []() -> Wrapper* { return nullptr; });
    if (wrapper == nullptr)
        return;
    for (int id = 1; id <= atmCount; ++id) {
        ShortAnswer answer;
        if (run({debug_level}, answer, kReadAtmRow, id) != CORVANTA_OK)
            return;
        const std::vector<std::string> columns = wrapper->Tokenize(answer.text, "|");
        if (columns.size() >= atmColumns) // an empty column leaves no token
            atm[id] = toAtmEntry(columns);
    }
}

void data_cache::loadBridges() {
    for (int slot = 1; slot <= slotCount; ++slot) {
        bridge_slot& br = bridge[slot];
        if (config_int_read_by_key(&br.intern_Id, "Bridge", "Id", "Name", br.name.c_str()) !=
            CORVANTA_OK)
            br.intern_Id = freeSlot;
    }
}

void data_cache::loadBridgeMembers() {
    ShortAnswer id;
    for (int row = 0; run(kQuiet, id, kReadMemberId, row) == CORVANTA_OK; ++row) {
        ShortAnswer bridgeId;
        ShortAnswer interface;
        const int bridgeStatus = run(kQuiet, bridgeId, kReadMemberBridge, id.text);
        const int interfaceStatus = run(kQuiet, interface, kReadMemberInterface, id.text);
        int slot = 0;
        if (bridgeStatus != CORVANTA_OK || interfaceStatus != CORVANTA_OK ||
            bridgeId.number().value_or(-1) < 0 ||
            bridge_iface_array_idx_by_BridgeId(*bridgeId.number(), slot) != CORVANTA_OK)
            continue;
        bridge_slot& br = bridge[slot];
        std::string& name = br.iface_name_lan.empty() ? br.iface_name_lan : br.iface_name_wan;
        name = interface.text;
    }
}

void data_cache::loadVlans() {
    for (int id = 1; id <= vlanRowCount; ++id) {
        vlan_row& row = vlan_intern[id];
        ignoreStatus(config_int_access_by_id(access_get, &row.Enable, "VLAN", "Enable", id));
        ignoreStatus(
            config_string_access_by_id(access_get, row.InterfaceName, "VLAN", "InterfaceName", id));
    }
}

int data_cache::atm_access(access_type access, atm_entry* entry, int index,
                           vantorKx9_param_ids param) {
    if (entry == nullptr)
        return CORVANTA_NO_COMMAND;
    if (index < 0 || index > atmCount)
        return CORVANTA_BAD_INDEX;
    switch (access) {
    case access_get:
        *entry = atm[index];
        return CORVANTA_OK;
    case access_set:
        break;
    default:
        return CORVANTA_FAILED;
    }

    atm[index] = *entry;
    ShortAnswer answer;
    switch (param) {
    case vantorKx9_Vpi:
        return run(kTraced, answer, kWriteAtmVpi, index, entry->Vpi);
    case vantorKx9_Vci:
        return run(kTraced, answer, kWriteAtmVci, index, entry->Vci);
    default:
        return CORVANTA_FAILED;
    }
}

int data_cache::bridge_iface_array_idx_by_BridgeId(int bridgeId, int& slot) {
    for (int s = 1; s <= slotCount; ++s) {
        if (bridge[s].intern_Id == bridgeId) {
            slot = s;
            return CORVANTA_OK;
        }
    }
    return CORVANTA_UNKNOWN_ROW;
}

data_cache::bridge_slot* data_cache::slotOf(unsigned int bridgeId) {
    int slot = 0;
    if (bridgeId > INT_MAX ||
        bridge_iface_array_idx_by_BridgeId(static_cast<int>(bridgeId), slot) != CORVANTA_OK)
        return nullptr;
    return &bridge[slot];
}

std::string data_cache::bridge_iface_name_lan_by_BridgeId(unsigned int bridgeId) {
    const bridge_slot* const br = slotOf(bridgeId);
    return br != nullptr ? br->iface_name_lan : std::string();
}

void data_cache::bridge_iface_name_lan_by_BridgeId(unsigned int bridgeId, std::string name) {
    if (bridge_slot* const br = slotOf(bridgeId))
        br->iface_name_lan = std::move(name);
}

void data_cache::bridge_iface_name_wan_by_BridgeId(unsigned int bridgeId, std::string name) {
    if (bridge_slot* const br = slotOf(bridgeId))
        br->iface_name_wan = std::move(name);
}

int data_cache::bridge_intern_Id_by_name_idx_create(int& bridgeId, int slot) {
    if (!isSlot(slot))
        return CORVANTA_FAILED;
    bridge_slot& br = bridge[slot];
    ShortAnswer answer;
    ignoreStatus(
        run(kQuiet, answer, kInsertBridge, br.name.c_str())); // a failure leaves no number to read
    br.intern_Id = answer.number().value_or(freeSlot);
    bridgeId = br.intern_Id;
    if (bridgeId <= 0)
        return CORVANTA_FAILED;
    ignoreStatus(run(kQuiet, answer, kInsertBridgeNode, br.name.c_str()));
    return CORVANTA_OK;
}

int data_cache::bridge_intern_Id_by_name_idx_get(int& bridgeId, int slot) {
    bridgeId = isSlot(slot) ? bridge[slot].intern_Id : freeSlot;
    return bridgeId;
}

int data_cache::bridge_intern_Id_delete(int bridgeId) {
    int slot = 0;
    TRY(bridge_iface_array_idx_by_BridgeId(bridgeId, slot));
    bridge_slot& br = bridge[slot];
    ShortAnswer answer;
    ignoreStatus(run(kQuiet, answer, kDeleteBridgeNode, br.name.c_str()));
    ignoreStatus(run(kQuiet, answer, kDeleteBridge, br.intern_Id));
    br.intern_Id = freeSlot;
    return CORVANTA_OK;
}

int data_cache::vlan_intern_Enable_get(int& enable, int index) {
    enable = isVlanRow(index) ? vlan_intern[index].Enable : 0;
    return enable;
}

int data_cache::vlan_intern_Enable_set(int enable, int index) {
    if (!isVlanRow(index))
        return CORVANTA_FAILED;
    vlan_intern[index].Enable = enable;
    return config_int_access_by_id(access_set, &enable, "VLAN", "Enable", index);
}

void data_cache::vlan_intern_InterfaceName_get(std::string& name, int index) {
    name = isVlanRow(index) ? vlan_intern[index].InterfaceName : std::string();
}
