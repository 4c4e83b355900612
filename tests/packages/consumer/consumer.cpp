#include <corvanta.h>
#include <corvanta/frame/SnmpConfigHandler.h>
#include <corvanta/frame/Wrapper.h>
#include <corvanta/objects/data_cache.h>
#include <corvanta/objects/managed_objects.h>
#include <corvanta/readers/MappingTable.h>
#include <corvanta/readers/SpeedInfo.h>

// What C does not see. The client here is the shell's own echo; the database's is not there.
int main() {
    std::string answer;
    call_cmd("echo 42", answer, 7);
    update_managed_objects();
    kavo::snmp::MappingTable table;
    table.initialize(false);
    const bool right =
        answer == "42" && mgmt_o.cache->bridge[1].name == std::string("br1") && table.size() == 14;
    return right ? 0 : 1;
}
