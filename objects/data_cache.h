#pragma once

#include <corvanta.h>

#include <cstdint>
#include <string>

/// Copy of the configuration state that the handlers consult most. The arrays count from 1, so that
/// an index is a row's Id or a slot's number; element 0 is never loaded. Of a row or slot that does
/// not exist a get gives 0, an empty name or freeSlot, a set or create CORVANTA_FAILED.
class CORVANTA_API data_cache {
public:
    static constexpr int atmCount = 8;
    static constexpr int vlanRowCount = 16;
    static constexpr int slotCount = 8;
    static constexpr int freeSlot = -1;

    data_cache();
    ~data_cache();
    data_cache(const data_cache&) = default;
    data_cache& operator=(const data_cache&) = default;

    /// Zeroes the ATM rows and names the bridge slots "br1" to "br8".
    void init();

    /// Loads everything from the database; a failed read leaves 0, empty or freeSlot.
    void update();

    /// See atm_access_c().
    int atm_access(access_type access, atm_entry* entry, int index, vantorKx9_param_ids param);

    /// Finds the slot that holds a bridge Id. @return CORVANTA_UNKNOWN_ROW when none does
    int bridge_iface_array_idx_by_BridgeId(int bridgeId, int& slot);
    std::string bridge_iface_name_lan_by_BridgeId(unsigned int bridgeId);
    void bridge_iface_name_lan_by_BridgeId(unsigned int bridgeId, std::string name);
    void bridge_iface_name_wan_by_BridgeId(unsigned int bridgeId, std::string name);

    /// Creates the bridge of a free slot, with its node.
    int bridge_intern_Id_by_name_idx_create(int& bridgeId, int slot);

    /// @return the slot's bridge Id, stored in bridgeId too
    int bridge_intern_Id_by_name_idx_get(int& bridgeId, int slot);

    /// Deletes a slot's bridge and its node, and frees the slot.
    int bridge_intern_Id_delete(int bridgeId);

    /// @return the row's `Enable`, stored in enable too
    int vlan_intern_Enable_get(int& enable, int index);

    /// Stores the row's `Enable` in the cache, then in the database.
    int vlan_intern_Enable_set(int enable, int index);
    void vlan_intern_InterfaceName_get(std::string& name, int index);

    struct vlan_row {
        std::int32_t Enable = 0;
        std::string InterfaceName;
    };

    struct bridge_slot {
        std::string name;
        std::int32_t intern_Id = 0; ///< Id in `Bridge`; freeSlot when there is none
        std::string iface_name_lan;
        std::string iface_name_wan;
    };

    atm_entry atm[atmCount + 1] = {};       ///< `Atm` by Id
    vlan_row vlan_intern[vlanRowCount + 1]; ///< `VLAN` by Id
    bridge_slot bridge[slotCount + 1];      ///< bridges "br1" to "br8"

private:
    [[gnu::visibility("hidden")]] void loadAtm();
    [[gnu::visibility("hidden")]] void loadBridges();
    [[gnu::visibility("hidden")]] void loadBridgeMembers();
    [[gnu::visibility("hidden")]] void loadVlans();
    [[gnu::visibility("hidden")]] bridge_slot* slotOf(unsigned int bridgeId);
};
