// The whole road: the library, the shell, the client and its database, the circuit list and the
// DSL tool. Each test runs on a device of its own; what a set changed is compared row by row.

#include "Device.h"

#include <corvanta.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>

#include <unistd.h>

namespace {

int pauses = 0;
std::function<void()> meanwhile; // what others do in a pause

class RoadTest : public DeviceTest {
protected:
    // Once: a second initialize() would leak the first.
    static void SetUpTestSuite() { ASSERT_EQ(initialize(0), 1); }

    RoadTest() {
        setenv("CORVANTA_DEVICE", m_device.c_str(), 1);
        update_managed_objects();
        m_rows = rows();
        pauses = 0;
        meanwhile = [] {};
    }

    Lines sql(const std::string& statement) { return Database(database()).run(statement); }

    std::multiset<std::string> rows() {
        std::multiset<std::string> all;
        for (const std::string& table : sql("SELECT name FROM sqlite_master WHERE type = 'table'"))
            for (const std::string& row : sql("SELECT * FROM " + table))
                all.insert(table + " " + row);
        return all;
    }

    /// The rows that came ("+") and went ("-") since the last call.
    Lines changes() {
        const std::multiset<std::string> before = std::exchange(m_rows, rows());
        Lines gone, came;
        std::set_difference(before.begin(), before.end(), m_rows.begin(), m_rows.end(),
                            std::back_inserter(gone));
        std::set_difference(m_rows.begin(), m_rows.end(), before.begin(), before.end(),
                            std::back_inserter(came));
        for (std::string& row : gone)
            row.insert(0, "-");
        for (const std::string& row : came)
            gone.push_back("+" + row);
        return gone;
    }

    /// Sets the default WAN interface, or that of a VLAN object.
    template <class Handler, class... Index>
    static int name(Handler handler, std::string text, Index... index) {
        int length = static_cast<int>(text.size());
        return handler(access_set, text.data(), length, &length, index...);
    }

    static std::string report() {
        char* text = getLayer2IfStatus();
        const std::string copy = text;
        free(text);
        return copy;
    }

    static std::string defaultWan() {
        char text[15] = "";
        int length = 0;
        EXPECT_EQ(VlanDefaultWanInterface(access_get, text, sizeof text, &length), CORVANTA_OK);
        return {text, static_cast<std::size_t>(length)};
    }

    template <class Handler, class... Index>
    static int set(Handler handler, bool on, Index... index) {
        int value = on ? 1 : 2;
        return handler(access_set, &value, index...);
    }

    template <class Handler, class... Index>
    static int get(Handler handler, Index... index) {
        int value = 0;
        EXPECT_EQ(handler(access_get, &value, index...), CORVANTA_OK);
        return value;
    }

    std::multiset<std::string> m_rows;
};

TEST_F(RoadTest, StatusFollowsTheDevice) {
    EXPECT_EQ(report(),
              "VC1=1|PPPoE1=1|VC2=1|PPPoE2=1|VC3=1|DHCP3=1|VC4=2|VC5=2|VC6=2|VC7=2|VC8=1");
    std::ofstream(m_device / "pvc") << "Itf VPI VCI   AAL RX(PCR,Class) TX(PCR,Class)\n"
                                       "  0   7  35    5       0 UBR         0 UBR\n";
    sql("DELETE FROM Atm WHERE Id < 7");
    EXPECT_EQ(report(), "VC7=1|VC8=2");

    speedInfo_s rates;
    ASSERT_EQ(getSpeedInfo(&rates), 1);
    EXPECT_GT(rates.dslActualDataRateDown, rates.dslActualDataRateUp);
    std::ofstream(m_device / "line-rates")
        << "actual 640 0x908\ncolumns Up Down\n# attainable 5\nattainable 704 2400\n";
    ASSERT_EQ(getSpeedInfo(&rates), 1);
    const std::uint32_t expected[] = {2312, 640, 2400, 704};
    EXPECT_EQ(memcmp(&rates, expected, sizeof expected), 0);
}

TEST_F(RoadTest, HostThatIgnoresItsChildren) {
    const auto before = std::signal(SIGCHLD, SIG_IGN); // whose exit statuses are then lost
    EXPECT_EQ(report().substr(0, 14), "VC1=1|PPPoE1=1");
    EXPECT_EQ(set(AtmEnabled_snmp, true, 4), CORVANTA_OK);
    EXPECT_EQ(get(AtmEnabled_snmp, 4), 1);
    EXPECT_EQ(name(VlanDefaultWanInterface, "wan2"), CORVANTA_OK);
    EXPECT_EQ(defaultWan(), "wan2");
    std::signal(SIGCHLD, before);
}

TEST_F(RoadTest, AtmCircuit) {
    EXPECT_EQ(get(AtmEnabled_snmp, 4), 2);
    EXPECT_EQ(set(AtmEnabled_snmp, true, 4), CORVANTA_OK);
    EXPECT_EQ(changes(), (Lines{"-Atm 4|0|4|32|atm4|0", "+Atm 4|1|4|32|atm4|0",
                                "+NetworkSetupNode 7|MPoA|wan4|SHDSL|4|1"}));
    EXPECT_EQ(set(AtmEnabled_snmp, false, 4), CORVANTA_OK);
    EXPECT_EQ(changes(), (Lines{"-Atm 4|1|4|32|atm4|0", "-NetworkSetupNode 7|MPoA|wan4|SHDSL|4|1",
                                "+Atm 4|0|4|32|atm4|0"}));
    EXPECT_EQ(set(AtmEnabled_snmp, true, 9), CORVANTA_UNKNOWN_ROW);
}

TEST_F(RoadTest, VlanObject) {
    EXPECT_EQ(set(VlanEnabled_snmp, true, 1), CORVANTA_OK);
    EXPECT_EQ(
        changes(),
        (Lines{"-VLAN 1|0|eth0.101|eth0", "+Bridge 1|br1|0", "+BridgeInterface 1|1|eth0.101|0|0",
               "+BridgeInterface 2|1|wan1.101|0|0", "+NetworkSetupNode 10|VLAN|wan1.101|wan1||1",
               "+NetworkSetupNode 11|BridgeInterface|bridge:wan1.101|wan1.101||1",
               "+NetworkSetupNode 7|Bridge|br1|root||1",
               "+NetworkSetupNode 8|VLAN|eth0.101|eth0||1",
               "+NetworkSetupNode 9|BridgeInterface|bridge:eth0.101|eth0.101||1",
               "+StatusNetifConfig 2|eth0.101", "+StatusNetifConfig 3|wan1.101",
               "+VLAN 1|1|eth0.101|eth0"}));

    EXPECT_EQ(set(VlanDiscardTag_snmp, true, 1), CORVANTA_OK);
    EXPECT_EQ(changes(), (Lines{"-BridgeInterface 2|1|wan1.101|0|0", "-VLAN 2|1|wan1.101|wan1",
                                "+BridgeInterface 2|1|wan1|0|0",
                                "+NetworkSetupNode 12|BridgeInterface|bridge:wan1|wan1||1",
                                "+VLAN 2|0|wan1.101|wan1"}));

    EXPECT_EQ(get(VlanDiscardTag_snmp, 1), 1);
    EXPECT_EQ(set(VlanDiscardTag_snmp, false, 1), CORVANTA_OK);
    EXPECT_EQ(changes(), (Lines{"-BridgeInterface 2|1|wan1|0|0", "-VLAN 2|0|wan1.101|wan1",
                                "+BridgeInterface 2|1|wan1.101|0|0",
                                "+NetworkSetupNode 13|BridgeInterface|bridge:wan1.101|wan1.101||1",
                                "+VLAN 2|1|wan1.101|wan1"}));

    // The node of the parent, a member for a while, is nobody's to remove.
    EXPECT_EQ(set(VlanEnabled_snmp, false, 1), CORVANTA_OK);
    EXPECT_EQ(changes().size(), 13u);
    EXPECT_EQ(sql("SELECT Id, InterfaceName FROM NetworkSetupNode WHERE Id > 6"),
              Lines{"12|bridge:wan1"});
    EXPECT_EQ(sql("SELECT * FROM BridgeInterface UNION ALL SELECT *, '', '' FROM Bridge"), Lines{});

    EXPECT_EQ(set(VlanDiscardTag_snmp, true, 1), CORVANTA_UNKNOWN_ROW);
    EXPECT_EQ(changes(), (Lines{"-VLAN 2|1|wan1.101|wan1", "+VLAN 2|0|wan1.101|wan1"}));
}

TEST_F(RoadTest, EveryBridgeSlot) {
    for (int n = 1; n <= 8; ++n)
        EXPECT_EQ(set(VlanEnabled_snmp, true, n), CORVANTA_OK) << n;
    EXPECT_EQ(sql("SELECT count(*) FROM Bridge"), Lines{"8"});
    EXPECT_EQ(set(VlanEnabled_snmp, false, 5), CORVANTA_OK);
    sql("INSERT INTO Bridge (Name) VALUES ('br5')"); // somebody else's
    update_managed_objects();
    EXPECT_EQ(set(VlanEnabled_snmp, true, 5), CORVANTA_FAILED);
    EXPECT_EQ(sql("SELECT Enable FROM VLAN WHERE Id = 9"), Lines{"1"});
}

TEST_F(RoadTest, DefaultWanInterface) {
    // Without a bridge the discarding of untagged frames is a setting only.
    for (const char* state : {"1", "0"}) {
        EXPECT_EQ(set(VlanDiscardUntaggedFrames_snmp, *state == '1'), CORVANTA_OK);
        EXPECT_EQ(sql("SELECT DiscardUntaggedFrames FROM VLANSingleParams"), Lines{state});
    }
    EXPECT_EQ(changes(), Lines{});
    EXPECT_EQ(defaultWan(), "");
    EXPECT_EQ(name(VlanDefaultWanInterface, "wan2"), CORVANTA_OK);
    EXPECT_EQ(changes(), (Lines{"+Bridge 1|br1|0", "+BridgeInterface 1|1|eth0|0|0",
                                "+BridgeInterface 2|1|wan2|0|0"}));
    EXPECT_EQ(name(VlanDefaultWanInterface, "wan3"), CORVANTA_OK);
    EXPECT_EQ(changes(), (Lines{"-BridgeInterface 2|1|wan2|0|0", "+BridgeInterface 2|1|wan3|0|0"}));
    EXPECT_EQ(name(VlanDefaultWanInterface, "wan3;reboot"), CORVANTA_UNFIT);
    EXPECT_EQ(defaultWan(), "wan3");

    // A VLAN object takes the interface: without a filter the bridge's deletion stops half way.
    EXPECT_EQ(name(VlanWanInterface, "wan3", 2), CORVANTA_UNKNOWN_ROW);
    EXPECT_EQ(changes(), (Lines{"-BridgeInterface 1|1|eth0|0|0", "-BridgeInterface 2|1|wan3|0|0",
                                "-VLAN 4|1|wan1.102|wan1", "+VLAN 4|1|wan1.102|wan3"}));
    EXPECT_EQ(defaultWan(), "");

    // The next bridge takes the interface back, from an object that it switches off.
    EXPECT_EQ(set(VlanEnabled_snmp, true, 2), CORVANTA_OK);
    EXPECT_EQ(name(VlanDefaultWanInterface, "wan3"), CORVANTA_OK);
    EXPECT_EQ(sql("SELECT Enable FROM VLAN WHERE Id = 3"), Lines{"0"});
    EXPECT_EQ(sql("SELECT Name, Interface FROM Bridge b JOIN BridgeInterface ON BridgeId = b.Id"),
              (Lines{"br2|eth0", "br2|wan3"}));
    changes();

    // With a filter it goes whole.
    EXPECT_EQ(set(VlanDiscardUntaggedFrames_snmp, true), CORVANTA_OK);
    EXPECT_EQ(changes(),
              (Lines{"-VLANSingleParams 1|0", "+BridgeFilter 1|3||0|0", "+VLANSingleParams 1|1"}));
    EXPECT_EQ(name(VlanDefaultWanInterface, ""), CORVANTA_OK);
    EXPECT_EQ(sql("SELECT Name FROM Bridge"), Lines{"br1"});
    EXPECT_EQ(sql("SELECT * FROM BridgeFilter"), Lines{});
}

TEST_F(RoadTest, LockedDatabase) {
    // Another process holds it for two seconds.
    const fs::path held = m_folder / "held";
    FILE* const process = popen(("sqlite3 '" + database().string() + "'").c_str(), "w");
    fprintf(process, "BEGIN EXCLUSIVE;\n.shell touch '%s'; sleep 2\nROLLBACK;\n", held.c_str());
    fflush(process);
    while (!fs::exists(held))
        usleep(1000);
    meanwhile = [] { usleep(1000000); };
    EXPECT_EQ(set(AtmEnabled_snmp, true, 4), CORVANTA_OK);
    EXPECT_GE(pauses, 1);
    EXPECT_EQ(pclose(process), 0);
    EXPECT_EQ(sql("SELECT Enabled FROM Atm WHERE Id = 4"), Lines{"1"});

    // Somebody holds it for good.
    Database other(database());
    other.run("BEGIN EXCLUSIVE");
    meanwhile = [] {};
    pauses = 0;
    EXPECT_EQ(set(AtmEnabled_snmp, false, 4), CORVANTA_LOCKED);
    EXPECT_EQ(pauses, 19);
}

} // namespace

extern "C" unsigned int sleep(unsigned int) {
    ++pauses;
    meanwhile();
    return 0;
}
