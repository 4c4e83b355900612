#include "tests/Platform.h"

#include "frame/Wrapper.h"
#include "objects/data_cache.h"
#include "objects/managed_objects.h"

#include <climits>
#include <cstring>
#include <map>

namespace {

std::string quoted(const std::string& text) {
    return " quorlet \"" + text + "\" ";
}
std::string atmRead(int id) {
    return quoted("  selectkey Atm Id " + std::to_string(id) +
                  " Enabled DeviceName Vpi Vci FcsPreserve  ;");
}
std::string slotRead(int slot) {
    return quoted(" selectkey Bridge Name br" + std::to_string(slot) + " Id ;");
}
std::string memberRow(int row) {
    return quoted("  selectrow BridgeInterface " + std::to_string(row) + " Id  ;");
}
std::string memberRead(const char* id, const char* column) {
    return quoted(std::string("  selectkey BridgeInterface Id ") + id + " " + column + "  ;");
}
std::string vlanEnable(int id) {
    return quoted(" selectkey VLAN Id " + std::to_string(id) + " Enable ;");
}
std::string vlanName(int id) {
    return quoted("  selectkey VLAN Id " + std::to_string(id) + " InterfaceName  ;");
}

class DataCacheTest : public PlatformTest {
protected:
    DataCacheTest() {
        for (int id = 1; id <= 8; ++id)
            database[atmRead(id)] =
                "1|dev" + std::to_string(id) + "|" + std::to_string(id) + "|32|0\n";
        for (int id = 1; id <= 16; ++id) {
            database[vlanEnable(id)] = "1\n";
            database[vlanName(id)] = "if" + std::to_string(id) + "\n";
        }
        database[slotRead(1)] = "11\n";
        database[slotRead(8)] = "18\n";
        const char* const members[][3] = {{"5", "11", "eth0"},
                                          {"7", "99", "no bridge"},
                                          {"8", "11", "wan1"},
                                          {"9", "11", "wan2"},
                                          {"10", "18", "wlan1"}};
        int row = 0;
        for (const auto& [id, bridge, name] : members) {
            database[memberRow(row++)] = std::string(id) + "\n";
            database[memberRead(id, "BridgeId")] = std::string(bridge) + "\n";
            database[memberRead(id, "Interface")] = std::string(name) + "\n";
        }
        platform.client = [this](const std::string& command) {
            const auto answer = database.find(command);
            return answer == database.end() ? Answer("Unknown row\n") : answer->second;
        };
    }
    ~DataCacheTest() override {
        delete mgmt_o.cache;
        mgmt_o.cache = nullptr;
    }

    static std::string atm(int id) {
        const atm_entry& e = mgmt_o.cache->atm[id];
        return std::to_string(e.Enabled) + " " + e.DeviceName + " " + std::to_string(e.Vpi) + " " +
               std::to_string(e.Vci) + " " + std::to_string(e.FcsPreserve);
    }
    static std::string slot(int number) {
        const data_cache::bridge_slot& s = mgmt_o.cache->bridge[number];
        return s.name + " " + std::to_string(s.intern_Id) + " " + s.iface_name_lan + " " +
               s.iface_name_wan;
    }
    static std::string vlan(int id) {
        const data_cache::vlan_row& row = mgmt_o.cache->vlan_intern[id];
        return std::to_string(row.Enable) + " " + row.InterfaceName;
    }

    std::map<std::string, Answer> database;
};

TEST_F(DataCacheTest, LoadsEverythingInOrder) {
    Wrapper::getInstance()->m_bVerbose = false;
    debug_level = 5; // traces the ATM reads
    update_managed_objects();
    Lines expected;
    for (int id = 1; id <= 8; ++id)
        expected.push_back(atmRead(id));
    EXPECT_EQ(8U, platform.log.size());
    EXPECT_EQ("trace:corvanta: " + atmRead(1) + " ==> 1|dev1|1|32|0", platform.takeLog().at(0));
    for (int s = 1; s <= 8; ++s)
        expected.push_back(slotRead(s));
    int row = 0;
    for (const char* id : {"5", "7", "8", "9", "10"}) {
        expected.push_back(memberRow(row++));
        expected.push_back(memberRead(id, "BridgeId"));
        expected.push_back(memberRead(id, "Interface"));
    }
    expected.push_back(memberRow(5));
    for (int id = 1; id <= 16; ++id) {
        expected.push_back(vlanEnable(id));
        expected.push_back(vlanName(id));
    }
    EXPECT_EQ(8U + 8 + 3 * 5 + 1 + 32, expected.size());
    EXPECT_EQ(expected, platform.takeCommands());

    EXPECT_EQ("0  0 0 0", atm(0));
    EXPECT_EQ("1 dev1 1 32 0", atm(1));
    EXPECT_EQ("1 dev8 8 32 0", atm(8));
    EXPECT_EQ("br1 11 eth0 wan2", slot(1));
    EXPECT_EQ("br2 -1  ", slot(2));
    EXPECT_EQ("br8 18 wlan1 ", slot(8));
    EXPECT_EQ("1 if1", vlan(1));
    EXPECT_EQ("1 if16", vlan(16));

    debug_level = 7;
    database[vlanEnable(1)] = "0\n";
    Wrapper::getInstance()->m_bVerbose = true; // stays as it is, and Tokenize traces
    update_managed_objects();
    EXPECT_EQ("0 if1", vlan(1));
    EXPECT_TRUE(Wrapper::getInstance()->m_bVerbose);
    for (const std::string& line : platform.takeLog())
        EXPECT_EQ(0U, line.find("tracedo:Wrapper: Tokenize")) << line;
}

TEST_F(DataCacheTest, WhatCannotBeReadStaysEmpty) {
    database[vlanEnable(3)] = notStarted;
    database[vlanName(4)] = std::string(19, 'x');
    database[slotRead(8)] = "x\n";
    database[memberRead("8", "BridgeId")] = "";
    database[memberRead("9", "Interface")] = "";
    database[atmRead(2)] = "1|2|3|4\n";
    database[atmRead(3)] = "\n";
    database[atmRead(4)] = "0|" + std::string(20, 'd') + "|1|2|3";
    database[atmRead(5)] = "2||x| 7y|-1\n"; // no empty fields: four tokens
    database[atmRead(6)] = "2|d|x| 7y|-1|9\n";
    database[atmRead(7)] = notStarted;
    update_managed_objects();
    EXPECT_EQ("1 dev1 1 32 0", atm(1));
    EXPECT_EQ("0  0 0 0", atm(2));
    EXPECT_EQ("0  0 0 0", atm(3));
    EXPECT_EQ("2 " + std::string(19, 'd') + " 1 2 3", atm(4));
    EXPECT_EQ("0  0 0 0", atm(5));
    EXPECT_EQ("0 d 0 7 -1", atm(6));
    EXPECT_EQ("0  0 0 0", atm(7));
    EXPECT_EQ("0  0 0 0", atm(8)) << "not read after a failure";
    EXPECT_EQ("br1 11 eth0 ", slot(1));
    EXPECT_EQ("br8 -1  ", slot(8));
    EXPECT_EQ("0 if3", vlan(3));
    EXPECT_EQ("1 ", vlan(4));
    EXPECT_EQ(7U + 8 + 3 * 5 + 1 + 32, platform.commands.size());
    EXPECT_EQ(Lines{}, platform.takeLog());

    // The walk over the members has no bound.
    for (int row = 0; row < 100; ++row)
        database[memberRow(row)] = "5\n";
    platform.takeCommands();
    update_managed_objects();
    EXPECT_EQ(7U + 8 + 3 * 100 + 1 + 32, platform.commands.size());
}

TEST_F(DataCacheTest, ReadsAndWritesAtmRows) {
    update_managed_objects();
    platform.takeCommands();
    atm_entry entry = {};
    EXPECT_EQ(0, atm_access_c(access_get, &entry, 8, 0));
    EXPECT_STREQ("dev8", entry.DeviceName);
    EXPECT_EQ(0, atm_access_c(access_get, &entry, 0, 4));
    EXPECT_STREQ("", entry.DeviceName);

    for (const int access : {1, 2, 0, 3, 9}) {
        EXPECT_EQ(4, atm_access_c(access, nullptr, 99, 4));
        for (const int index : {9, -1, INT_MIN})
            EXPECT_EQ(5, atm_access_c(access, &entry, index, 4));
    }
    for (const int access : {0, 3, 4, 9})
        EXPECT_EQ(1, atm_access_c(access, &entry, 1, 4));
    entry = {1, "new", 5, 66, 1};
    for (const int param : {3, 6, 0, -1})
        EXPECT_EQ(1, atm_access_c(access_set, &entry, 1, param));
    EXPECT_EQ(Lines{}, platform.takeCommands());
    EXPECT_EQ("1 new 5 66 1", atm(1));

    const Lines commands = {quoted("  updatekey Atm Id 0 Vpi integer:5 ;"),
                            quoted("  updatekey Atm Id 2 Vci integer:66 ;")};
    database[commands[0]] = "Operation succeeded\n";
    EXPECT_EQ(0, atm_access_c(access_set, &entry, 0, 4));
    EXPECT_EQ(3, atm_access_c(access_set, &entry, 2, 5));
    EXPECT_EQ("1 new 5 66 1", atm(2)) << "kept when the write fails";
    EXPECT_EQ(commands, platform.takeCommands());
    EXPECT_EQ((Lines{"trace:corvanta: " + commands[0] + " ==> Operation succeeded",
                     "trace:corvanta: " + commands[1] + " ==> Unknown row\n"}),
              platform.takeLog());
}

TEST_F(DataCacheTest, BridgeSlots) {
    update_managed_objects();
    platform.takeCommands();
    data_cache& cache = *mgmt_o.cache;
    int found = 77, id = 77;
    EXPECT_EQ(0, cache.bridge_iface_array_idx_by_BridgeId(18, found));
    EXPECT_EQ(8, found);
    EXPECT_EQ(3, cache.bridge_iface_array_idx_by_BridgeId(5, found));
    EXPECT_EQ(8, found);
    EXPECT_EQ("eth0", cache.bridge_iface_name_lan_by_BridgeId(11));
    EXPECT_EQ("", cache.bridge_iface_name_lan_by_BridgeId(12));
    cache.bridge_iface_name_lan_by_BridgeId(18, "a");
    cache.bridge_iface_name_wan_by_BridgeId(18, "b");
    cache.bridge_iface_name_lan_by_BridgeId(12, "c");
    EXPECT_EQ("br8 18 a b", slot(8));
    EXPECT_EQ(11, cache.bridge_intern_Id_by_name_idx_get(id, 1));
    EXPECT_EQ(11, id);
    EXPECT_EQ(3, cache.bridge_intern_Id_delete(5));
    EXPECT_EQ(Lines{}, platform.takeCommands());

    const std::string insert = quoted("  insertkey  Bridge  Name text:br3 Stp integer:0   ;");
    for (const Answer& answer : {Answer("none\n"), Answer("0\n"), Answer("-4\n"), notStarted}) {
        database[insert] = answer;
        EXPECT_EQ(1, cache.bridge_intern_Id_by_name_idx_create(id, 3));
        EXPECT_LE(cache.bridge[3].intern_Id, 0);
        EXPECT_EQ(Lines{insert}, platform.takeCommands());
        if (answer.text[0] == 'n') {
            EXPECT_EQ(-1, cache.bridge[3].intern_Id) << "the slot stays free";
        }
        cache.bridge[3].intern_Id = -1;
    }
    database[insert] = "1\n"; // an Id like any other
    EXPECT_EQ(0, cache.bridge_intern_Id_by_name_idx_create(id, 3));
    EXPECT_EQ(1, id);
    EXPECT_EQ(0, cache.bridge_intern_Id_delete(1)) << "with no such rows in the database";
    EXPECT_EQ("br3 -1  ", slot(3));
    const Lines expected = {
        insert,
        quoted("  insertkey   NetworkSetupNode  Type text:Bridge  InterfaceName text:br3 "
               "ParentInterface text:root   ConfigurationSpecifics text:  Enable integer:1  ;"),
        quoted("  deletekey   NetworkSetupNode  InterfaceName br3 ;"),
        quoted("  deletekey  Bridge  Id 1 ;")};
    EXPECT_EQ(expected, platform.takeCommands());
}

TEST_F(DataCacheTest, IndexesOutsideTheirRange) {
    data_cache cache;
    cache.init();
    EXPECT_EQ(0, cache.bridge[1].intern_Id);
    for (const int index : {0, 9, 17, -1, INT_MAX, INT_MIN}) {
        int number = 77;
        std::string name = "old";
        EXPECT_EQ(-1, cache.bridge_intern_Id_by_name_idx_get(number, index == 17 ? 0 : index));
        EXPECT_EQ(-1, number);
        EXPECT_EQ(1, cache.bridge_intern_Id_by_name_idx_create(number, index));
        if (index == 9)
            continue; // a row all the same
        EXPECT_EQ(0, cache.vlan_intern_Enable_get(number, index));
        EXPECT_EQ(0, number);
        cache.vlan_intern_InterfaceName_get(name, index);
        EXPECT_EQ("", name);
        EXPECT_EQ(1, cache.vlan_intern_Enable_set(1, index));
    }
    EXPECT_EQ(Lines{}, platform.takeCommands());
    EXPECT_EQ(3, cache.vlan_intern_Enable_set(5, 16));
    EXPECT_EQ(5, cache.vlan_intern[16].Enable) << "kept when the write fails";
    EXPECT_EQ(Lines{quoted(" updatekey VLAN Id 16 Enable integer:5 ;")}, platform.takeCommands());
}

TEST_F(DataCacheTest, OutOfMemoryLeavesAValidCacheOrNone) {
    withEachAllocationFailing([&] {
        platform.takeCommands();
        {
            Allocations allocations;
            update_managed_objects();
            update_managed_objects();
            delete mgmt_o.cache;
            mgmt_o.cache = nullptr;
        }
        EXPECT_EQ(0, Allocations::live());
    });
    long first = 0;
    Allocations allocations;
    const auto client = platform.client;
    platform.client = [&](const std::string& command) {
        if (command == atmRead(1)) {
            EXPECT_TRUE(first == 0 || first == Allocations::live()) << "the old cache goes first";
            first = Allocations::live();
        }
        return client(command);
    };
    update_managed_objects();
    update_managed_objects();
    EXPECT_EQ("br1 11 eth0 wan2", slot(1));
    atm_entry entry;
    EXPECT_EQ(0, atm_access_c(access_get, &entry, 1, 0));
}

} // namespace
