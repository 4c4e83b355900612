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
    static void SetUpTestSuite() { ASSERT_EQ(1, initialize(0)); }

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

#define EXPECT_CHANGES(...) EXPECT_EQ((Lines{__VA_ARGS__}), changes())

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
        EXPECT_EQ(CORVANTA_OK, VlanDefaultWanInterface(access_get, text, sizeof text, &length));
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
        EXPECT_EQ(CORVANTA_OK, handler(access_get, &value, index...));
        return value;
    }

    std::multiset<std::string> m_rows;
};

TEST_F(RoadTest, StatusFollowsTheDevice) {
    EXPECT_EQ("VC1=1|PPPoE1=1|VC2=1|PPPoE2=1|VC3=1|DHCP3=1|VC4=2|VC5=2|VC6=2|VC7=2|VC8=1",
              report());
    std::ofstream(m_device / "pvc") << "Itf VPI VCI   AAL RX(PCR,Class) TX(PCR,Class)\n"
                                       "  0   7  35    5       0 UBR         0 UBR\n";
    sql("DELETE FROM Atm WHERE Id < 7");
    EXPECT_EQ("VC7=1|VC8=2", report());

    speedInfo_s rates;
    ASSERT_EQ(1, getSpeedInfo(&rates));
    EXPECT_GT(rates.dslActualDataRateDown, rates.dslActualDataRateUp);
    std::ofstream(m_device / "line-rates")
        << "actual 640 0x908\ncolumns Up Down\n# attainable 5\nattainable 704 2400\n";
    ASSERT_EQ(1, getSpeedInfo(&rates));
    const std::uint32_t expected[] = {2312, 640, 2400, 704};
    EXPECT_EQ(0, memcmp(&rates, expected, sizeof expected));
}

TEST_F(RoadTest, HostThatIgnoresItsChildren) {
    const auto before = std::signal(SIGCHLD, SIG_IGN); // whose exit statuses are then lost
    EXPECT_EQ("VC1=1|PPPoE1=1", report().substr(0, 14));
    EXPECT_EQ(CORVANTA_OK, set(AtmEnabled_snmp, true, 4));
    EXPECT_EQ(1, get(AtmEnabled_snmp, 4));
    EXPECT_EQ(CORVANTA_OK, name(VlanDefaultWanInterface, "wan2"));
    EXPECT_EQ("wan2", defaultWan());
    std::signal(SIGCHLD, before);
}

TEST_F(RoadTest, AtmCircuit) {
    EXPECT_EQ(2, get(AtmEnabled_snmp, 4));
    EXPECT_EQ(CORVANTA_OK, set(AtmEnabled_snmp, true, 4));
    EXPECT_CHANGES("-Atm 4|0|4|32|atm4|0", "+Atm 4|1|4|32|atm4|0",
                   "+NetworkSetupNode 7|MPoA|wan4|SHDSL|4|1");
    EXPECT_EQ(CORVANTA_OK, set(AtmEnabled_snmp, false, 4));
    EXPECT_CHANGES("-Atm 4|1|4|32|atm4|0", "-NetworkSetupNode 7|MPoA|wan4|SHDSL|4|1",
                   "+Atm 4|0|4|32|atm4|0");
    EXPECT_EQ(CORVANTA_UNKNOWN_ROW, set(AtmEnabled_snmp, true, 9));
}

TEST_F(RoadTest, VlanObject) {
    EXPECT_EQ(CORVANTA_OK, set(VlanEnabled_snmp, true, 1));
    EXPECT_CHANGES(
        "-VLAN 1|0|eth0.101|eth0", "+Bridge 1|br1|0", "+BridgeInterface 1|1|eth0.101|0|0",
        "+BridgeInterface 2|1|wan1.101|0|0", "+NetworkSetupNode 10|VLAN|wan1.101|wan1||1",
        "+NetworkSetupNode 11|BridgeInterface|bridge:wan1.101|wan1.101||1",
        "+NetworkSetupNode 7|Bridge|br1|root||1", "+NetworkSetupNode 8|VLAN|eth0.101|eth0||1",
        "+NetworkSetupNode 9|BridgeInterface|bridge:eth0.101|eth0.101||1",
        "+StatusNetifConfig 2|eth0.101", "+StatusNetifConfig 3|wan1.101",
        "+VLAN 1|1|eth0.101|eth0");

    EXPECT_EQ(CORVANTA_OK, set(VlanDiscardTag_snmp, true, 1));
    EXPECT_CHANGES("-BridgeInterface 2|1|wan1.101|0|0", "-VLAN 2|1|wan1.101|wan1",
                   "+BridgeInterface 2|1|wan1|0|0",
                   "+NetworkSetupNode 12|BridgeInterface|bridge:wan1|wan1||1",
                   "+VLAN 2|0|wan1.101|wan1");

    EXPECT_EQ(1, get(VlanDiscardTag_snmp, 1));

    EXPECT_EQ(CORVANTA_OK, set(VlanEnabled_snmp, false, 1));
    EXPECT_EQ(12u, changes().size());
    // The node of the tagged interface, a member for a while, is nobody's to remove.
    EXPECT_EQ(Lines{"11|bridge:wan1.101"},
              sql("SELECT Id, InterfaceName FROM NetworkSetupNode WHERE Id > 6"));
    EXPECT_EQ(Lines{}, sql("SELECT * FROM BridgeInterface UNION ALL SELECT *, '', '' FROM Bridge"));

    EXPECT_EQ(CORVANTA_UNKNOWN_ROW, set(VlanDiscardTag_snmp, false, 1));
    EXPECT_CHANGES("-VLAN 2|0|wan1.101|wan1", "+VLAN 2|1|wan1.101|wan1");
}

TEST_F(RoadTest, DefaultWanInterface) {
    // Without a bridge the discarding of untagged frames is a setting only.
    for (const char* state : {"1", "0"}) {
        EXPECT_EQ(CORVANTA_OK, set(VlanDiscardUntaggedFrames_snmp, *state == '1'));
        EXPECT_EQ(Lines{state}, sql("SELECT DiscardUntaggedFrames FROM VLANSingleParams"));
    }
    EXPECT_CHANGES();
    EXPECT_EQ("", defaultWan());
    EXPECT_EQ(CORVANTA_OK, name(VlanDefaultWanInterface, "wan2"));
    EXPECT_CHANGES("+Bridge 1|br1|0", "+BridgeInterface 1|1|eth0|0|0",
                   "+BridgeInterface 2|1|wan2|0|0");
    EXPECT_EQ(CORVANTA_OK, name(VlanDefaultWanInterface, "wan3"));
    EXPECT_CHANGES("-BridgeInterface 2|1|wan2|0|0", "+BridgeInterface 2|1|wan3|0|0");
    EXPECT_EQ(CORVANTA_UNFIT, name(VlanDefaultWanInterface, "wan3;reboot"));
    EXPECT_EQ("wan3", defaultWan());

    // A VLAN object takes the interface: without a filter the bridge's deletion stops half way.
    EXPECT_EQ(CORVANTA_UNKNOWN_ROW, name(VlanWanInterface, "wan3", 2));
    EXPECT_CHANGES("-BridgeInterface 1|1|eth0|0|0", "-BridgeInterface 2|1|wan3|0|0",
                   "-VLAN 4|1|wan1.102|wan1", "+VLAN 4|1|wan1.102|wan3");
    EXPECT_EQ("", defaultWan());

    // The next bridge takes the interface back, from an object that it switches off.
    EXPECT_EQ(CORVANTA_OK, set(VlanEnabled_snmp, true, 2));
    EXPECT_EQ(CORVANTA_OK, name(VlanDefaultWanInterface, "wan3"));
    EXPECT_EQ(Lines{"0"}, sql("SELECT Enable FROM VLAN WHERE Id = 3"));
    EXPECT_EQ((Lines{"br2|eth0", "br2|wan3"}),
              sql("SELECT Name, Interface FROM Bridge b JOIN BridgeInterface ON BridgeId = b.Id"));
    changes();

    // With a filter it goes whole.
    EXPECT_EQ(CORVANTA_OK, set(VlanDiscardUntaggedFrames_snmp, true));
    EXPECT_CHANGES("-VLANSingleParams 1|0", "+BridgeFilter 1|3||0|0", "+VLANSingleParams 1|1");
    EXPECT_EQ(CORVANTA_OK, name(VlanDefaultWanInterface, ""));
    EXPECT_EQ(Lines{"br1"}, sql("SELECT Name FROM Bridge"));
    EXPECT_EQ(Lines{}, sql("SELECT * FROM BridgeFilter"));
}

TEST_F(RoadTest, LockedDatabase) {
    Database other(database());
    other.run("BEGIN EXCLUSIVE");
    meanwhile = [] {};
    EXPECT_EQ(CORVANTA_LOCKED, set(AtmEnabled_snmp, true, 4));
    EXPECT_EQ(19, pauses);
    meanwhile = [&other] { other.run(pauses == 21 ? "ROLLBACK" : "SELECT 1"); };
    EXPECT_EQ(CORVANTA_OK, set(AtmEnabled_snmp, true, 4));
    EXPECT_EQ(21, pauses);
    EXPECT_EQ(Lines{"1"}, sql("SELECT Enabled FROM Atm WHERE Id = 4"));
}

} // namespace

extern "C" unsigned int sleep(unsigned int) {
    ++pauses;
    meanwhile();
    return 0;
}
