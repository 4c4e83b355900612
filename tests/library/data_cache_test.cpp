#include "tests/library/Platform.h"

#include "frame/Wrapper.h"
#include "objects/data_cache.h"
#include "objects/managed_objects.h"

#include <map>
#include <tuple>

namespace {

std::string number(int value) {
    return std::to_string(value);
}

/// A command in two parts, with the number of a row, or the like, between them.
struct Numbered {
    std::string operator()(int id) const { return quorlet(before + number(id) + after); }
    std::string before, after;
};
const Numbered atmRead = {"  selectkey Atm Id ", " Enabled DeviceName Vpi Vci FcsPreserve  ;"},
               slotRead = {" selectkey Bridge Name br", " Id ;"},
               memberRow = {"  selectrow BridgeInterface ", " Id  ;"},
               memberBridge = {"  selectkey BridgeInterface Id ", " BridgeId  ;"},
               memberName = {"  selectkey BridgeInterface Id ", " Interface  ;"},
               vlanEnable = {" selectkey VLAN Id ", " Enable ;"},
               vlanName = {"  selectkey VLAN Id ", " InterfaceName  ;"};

/// A database with a few rows, which answers "Unknown row" to everything else.
class DataCacheTest : public PlatformTest {
protected:
    DataCacheTest() {
        for (int id = 1; id <= 8; ++id)
            add(atmRead(id), "1|dev" + number(id) + "|" + number(id) + "|32|0\n");
        for (int slot = 1; slot <= 8; ++slot)
            add(slotRead(slot), slot == 1 || slot == 8 ? number(10 + slot) + "\n" : unknownRow);
        int row = 0;
        for (const auto& [id, bridge, name] : {std::tuple(5, "11", "eth0"),
                                               {6, "99", "alone"},
                                               {7, "-1", "with the Id of free slots"},
                                               {8, "11", "wan1"},
                                               {9, "11", "wan2"},
                                               {10, "18", "wlan1"},
                                               {11, "11", "wan3"}}) {
            add(memberRow(row++), number(id) + "\n");
            add(memberBridge(id), bridge + newline);
            add(memberName(id), name + newline);
        }
        add(memberRow(row), unknownRow);
        for (int id = 1; id <= 16; ++id) {
            add(vlanEnable(id), "1\n");
            add(vlanName(id), "if" + number(id) + "\n");
        }
        platform.client = [this](const std::string& command) {
            EXPECT_TRUE(command != atmRead(1) || !mgmt_o.cache) << "the old cache goes first";
            return database.count(command) ? database.at(command) : Answer(unknownRow);
        };
    }
    void add(const std::string& command, const Answer& answer) {
        database[command] = answer;
        loading.push_back(command);
    }

    static std::string atm(int id) {
        const atm_entry& e = mgmt_o.cache->atm[id];
        return number(e.Enabled) + " " + e.DeviceName + " " + number(e.Vpi) + " " + number(e.Vci) +
               " " + number(e.FcsPreserve);
    }
    static std::string slot(int index) {
        const auto& s = mgmt_o.cache->bridge[index];
        return s.name + " " + number(s.intern_Id) + " " + s.iface_name_lan + " " + s.iface_name_wan;
    }
    static std::string vlan(int id) {
        const auto& row = mgmt_o.cache->vlan_intern[id];
        return number(row.Enable) + " " + row.InterfaceName;
    }

    const std::string unknownRow = "Unknown row\n", newline = "\n";
    std::map<std::string, Answer> database;
    Lines loading; // the commands of a refresh
};

TEST_F(DataCacheTest, LoadsInOrderWhatCanBeRead) {
    debug_level = 5; // traces the ATM reads
    database[atmRead(4)] = "2|" + std::string(20, 'd') + "|1|2|3";
    database[atmRead(5)] = "2||x| 7y|-1\n"; // no empty fields: four tokens
    database[atmRead(6)] = "x|d|x| 7y|-1|9\n";
    database[atmRead(7)] = notStarted;
    database[slotRead(2)] = "x\n";
    database[memberBridge(10)] = "";
    database[memberName(11)] = "";
    database[vlanEnable(3)] = notStarted;
    database[vlanName(4)] = std::string(19, 'x');
    update_managed_objects();
    for (const int empty : {0, 5, 7, 8}) // 8 is not read after the failure of 7
        EXPECT_EQ("0  0 0 0", atm(empty)) << empty;
    EXPECT_EQ(
        (Lines{"1 dev1 1 32 0", "0 " + std::string(19, 'd') + " 1 2 3", "0 d 0 7 -1",
               "br1 11 eth0 wan2", "br2 -1  ", "br8 18  ", "0 if3", "1 ", "1 if16"}),
        (Lines{atm(1), atm(4), atm(6), slot(1), slot(2), slot(8), vlan(3), vlan(4), vlan(16)}));
    loading.erase(loading.begin() + 7);
    EXPECT_RUN(loading);
    EXPECT_EQ(7U, platform.log.size());
    EXPECT_EQ("trace:corvanta: " + atmRead(1) + " ==> 1|dev1|1|32|0", platform.log.front());

    for (int row = 0; row < 100; ++row) // the walk has no bound
        database[memberRow(row)] = "5\n";
    Wrapper::getInstance()->m_bVerbose = true;
    update_managed_objects();
    EXPECT_TRUE(Wrapper::getInstance()->m_bVerbose) << "stays as it is";
    EXPECT_EQ(7U + 8 + 3 * 100 + 1 + 32, platform.commands.size());

    const unsigned long failures = client_failures();
    platform.client = [](const std::string&) { return notStarted; };
    update_managed_objects(); // goes on after the first circuit
    EXPECT_EQ(failures + 1 + 8 + 1 + 32, client_failures());
}

TEST_F(DataCacheTest, ReadsAndWritesAtmRows) {
    update_managed_objects();
    platform.commands.clear();
    atm_entry entry = {};
    EXPECT_EQ(0, atm_access_c(access_get, &entry, 8, 4));
    EXPECT_STREQ("dev8", entry.DeviceName);
    for (const int access : {1, 2, 0, 3, 9}) {
        EXPECT_EQ(4, atm_access_c(access, nullptr, 99, 4));
        for (const int index : {9, -1, INT_MIN})
            EXPECT_EQ(5, atm_access_c(access, &entry, index, 4));
        EXPECT_TRUE(access == 1 || access == 2 || atm_access_c(access, &entry, 1, 4) == 1);
    }
    entry = {1, "new", 5, 66, 1};
    for (const int param : {3, 6})
        EXPECT_EQ(1, atm_access_c(access_set, &entry, 1, param));
    EXPECT_RUN();
    EXPECT_EQ("1 new 5 66 1", atm(1)) << "kept, though no column is written";

    const Lines commands = {quorlet("  updatekey Atm Id 0 Vpi integer:5 ;"),
                            quorlet("  updatekey Atm Id 2 Vci integer:66 ;")};
    database[commands[0]] = "Operation succeeded\n";
    EXPECT_EQ(0, atm_access_c(access_set, &entry, 0, 4));
    EXPECT_EQ(3, atm_access_c(access_set, &entry, 2, 5));
    EXPECT_EQ("1 new 5 66 1", atm(2)) << "kept when the write fails";
    EXPECT_RUN(commands);
    EXPECT_LOG("trace:corvanta: " + commands[0] + " ==> Operation succeeded",
               "trace:corvanta: " + commands[1] + " ==> " + unknownRow);
}

TEST_F(DataCacheTest, SlotsAndRowsThatExist) {
    update_managed_objects();
    platform.commands.clear();
    data_cache& cache = *mgmt_o.cache;
    cache.bridge_iface_name_lan_by_BridgeId(18, "a");
    cache.bridge_iface_name_wan_by_BridgeId(18, "b");
    cache.bridge_iface_name_lan_by_BridgeId(UINT_MAX, "c");
    EXPECT_EQ((Lines{"br8 18 a b", "br2 -1  "}), (Lines{slot(8), slot(2)}));
    EXPECT_EQ("a", cache.bridge_iface_name_lan_by_BridgeId(18));
    EXPECT_EQ("", cache.bridge_iface_name_lan_by_BridgeId(12));

    int id = 77;
    EXPECT_EQ(3, cache.bridge_iface_array_idx_by_BridgeId(5, id));
    EXPECT_EQ(77, id);
    std::string name = "old";
    for (const auto& [noSlot, noRow] : {std::pair(0, 0), {9, 17}, {INT_MIN, INT_MIN}}) {
        EXPECT_EQ(-1, cache.bridge_intern_Id_by_name_idx_get(id, noSlot));
        EXPECT_EQ(1, cache.bridge_intern_Id_by_name_idx_create(id, noSlot));
        EXPECT_EQ(0, cache.vlan_intern_Enable_get(id, noRow));
        EXPECT_EQ(1, cache.vlan_intern_Enable_set(1, noRow));
        cache.vlan_intern_InterfaceName_get(name, noRow);
        EXPECT_EQ("", name);
    }
    EXPECT_EQ(18, cache.bridge_intern_Id_by_name_idx_get(id, 8));
    EXPECT_EQ(18, id);
    EXPECT_EQ(1, cache.vlan_intern_Enable_get(id, 16));
    EXPECT_RUN();

    for (const int first : {0, 1}) { // no row has the Id 0
        database[quorlet("  insertkey  Bridge  Name text:br3 Stp integer:0   ;")] = number(first);
        EXPECT_EQ(1 - first, cache.bridge_intern_Id_by_name_idx_create(id, 3));
        EXPECT_EQ(first, id);
    }
}

} // namespace
