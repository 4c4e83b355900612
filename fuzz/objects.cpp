// The client's answers through the cache and every managed object, where they become parts of
// further commands: a name to write, then the answers.

#include "harness.h"

#include <corvanta.h>

void fuzz::test(std::string_view input) {
    std::string name = takeValue() + "  "; // a text's read needs this room
    const int room = static_cast<int>(name.size());
    int length = room - 2;
    m_bVerbose = input.size() % 2 == 1;
    const auto check = [](int status) {
        expect(status >= CORVANTA_OK && status <= CORVANTA_UNFIT, "a status has a name");
        start(100);
    };

    start(100);
    update_managed_objects();
    int ids[4];
    for (const access_type access : {access_get, access_set, access_create, access_delete}) {
        for (const int index : {1, 8, 9}) {
            atm_entry entry = {};
            check(atm_access_c(access_get, &entry, index, 0));
            expect(entry.Enabled >= 0 && entry.Enabled <= 2, "a truth value, or neither");
            expect(memchr(entry.DeviceName, 0, sizeof entry.DeviceName), "a name ends");
            check(atm_access_c(access, &entry, index, index % 2 ? vantorKx9_Vpi : vantorKx9_Vci));
            int value = index % 2 + 1;
            check(AtmEnabled_snmp(access, &value, index));
            check(VlanEnabled_snmp(access, &value, index));
            check(VlanDiscardTag_snmp(access, &value, index));
            check(VlanDiscardUntaggedFrames_snmp(access, &value));
            check(VlanWanInterface(access, name.data(), room, &length, index));
            check(VlanDefaultWanInterface(access, name.data(), room, &length));
            expect(length >= 0 && length <= room - 2, "a text's length leaves its room");
            check(default_Bridge(access, &ids[0], &ids[1], &ids[2], &ids[3]));
        }
    }
}
