#include <corvanta.h>
#include <corvanta/frame/SnmpConfigHandler.h>
#include <corvanta/frame/Wrapper.h>
#include <corvanta/objects/data_cache.h>
#include <corvanta/objects/managed_objects.h>
#include <corvanta/readers/MappingTable.h>
#include <corvanta/readers/SpeedInfo.h>

#include <iostream>

// What C does not see. The client here is the shell's own echo; the database's is not there, so
// that no bridge is found.
int main() {
    std::string answer;
    int bridge = 0, lan = 0, wan = 0, filter = 0;
    const int ran = call_cmd("echo 42", answer, 7);
    const int found = default_Bridge(access_get, &bridge, &lan, &wan, &filter);
    update_managed_objects();
    const data_cache::bridge_slot& slot = mgmt_o.cache->bridge[1];
    kavo::snmp::MappingTable table;
    table.initialize(false);
    std::cout << time2string() << ' ' << answer << ' ' << found << ' ' << slot.name << '\n';
    return ran == CORVANTA_OK && answer == "42" && found == CORVANTA_OK && bridge == -1 &&
                   slot.name == "br1" && slot.intern_Id == data_cache::freeSlot &&
                   table.size() == 14
               ? 0
               : 1;
}
