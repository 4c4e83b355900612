// The whole road: the library, the shell, the client and its database, the circuit list and the
// DSL tool. Each test runs on a device of its own; what a set changed is looked at in the database.

#include "tests/device/Device.h"

#include <corvanta.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <string>

namespace {

class RoadTest : public DeviceTest {
protected:
    // Once: a second initialize() would leak the first.
    static void SetUpTestSuite() { ASSERT_EQ(1, initialize(0)); }

    RoadTest() {
        setenv("CORVANTA_DEVICE", m_device.c_str(), 1);
        update_managed_objects();
    }

    /// The nodes of interfaces that the factory has not, and the members of bridges.
    std::string nodes() { return sql("SELECT InterfaceName FROM NetworkSetupNode WHERE Id > 6"); }
    std::string members() {
        return sql("SELECT Name, Interface FROM BridgeInterface JOIN Bridge b ON b.Id = BridgeId");
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

TEST_F(RoadTest, AtmCircuitOfAHostThatIgnoresItsChildren) {
    const auto before = std::signal(SIGCHLD, SIG_IGN); // whose exit statuses are then lost
    EXPECT_EQ("VC1=1|PPPoE1=1", report().substr(0, 14));
    EXPECT_EQ(2, get(AtmEnabled_snmp, 4));
    EXPECT_EQ(CORVANTA_OK, set(AtmEnabled_snmp, true, 4));
    EXPECT_EQ(1, get(AtmEnabled_snmp, 4));
    EXPECT_EQ("7|MPoA|wan4|SHDSL|4|1\n", sql("SELECT * FROM NetworkSetupNode WHERE Id > 6"));
    EXPECT_EQ(CORVANTA_OK, set(AtmEnabled_snmp, false, 4));
    EXPECT_EQ("4|0|4|32|atm4|0\n", sql("SELECT * FROM Atm WHERE Id = 4"));
    EXPECT_EQ("", nodes());
    EXPECT_EQ(CORVANTA_UNKNOWN_ROW, set(AtmEnabled_snmp, true, 9));
    std::signal(SIGCHLD, before);
}

TEST_F(RoadTest, DefaultWanInterfaceAndVlanObject) {
    // Without a bridge the discarding of untagged frames is a setting only.
    for (const bool discard : {true, false}) {
        EXPECT_EQ(CORVANTA_OK, set(VlanDiscardUntaggedFrames_snmp, discard));
        EXPECT_EQ(discard ? 1 : 2, get(VlanDiscardUntaggedFrames_snmp));
    }
    EXPECT_EQ("", defaultWan());
    for (const std::string wan : {"wan2", "wan3"}) {
        EXPECT_EQ(CORVANTA_OK, name(VlanDefaultWanInterface, wan));
        EXPECT_EQ("br1|eth0\nbr1|" + wan + "\n", members());
    }
    EXPECT_EQ(CORVANTA_UNFIT, name(VlanDefaultWanInterface, "wan3;reboot"));
    EXPECT_EQ("wan3", defaultWan());

    // A VLAN object takes the interface: without a filter the bridge's deletion stops half way.
    EXPECT_EQ(CORVANTA_UNKNOWN_ROW, name(VlanWanInterface, "wan3", 2));
    EXPECT_EQ("wan3\n", sql("SELECT ParentIf FROM VLAN WHERE Id = 4"));
    EXPECT_EQ("", defaultWan());

    // The next bridge takes the interface back, from an object that it switches off.
    EXPECT_EQ(CORVANTA_OK, set(VlanEnabled_snmp, true, 2));
    EXPECT_EQ("br1|eth0.102\nbr1|wan1.102\n", members());
    EXPECT_EQ(CORVANTA_OK, set(VlanDiscardTag_snmp, true, 2));
    EXPECT_EQ("br1|eth0.102\nbr1|wan3\n", members());
    EXPECT_EQ(CORVANTA_OK, name(VlanDefaultWanInterface, "wan3"));
    EXPECT_EQ("0\n", sql("SELECT Enable FROM VLAN WHERE Id = 3"));
    EXPECT_EQ("br2|eth0\nbr2|wan3\n", members());

    // With a filter it goes whole.
    EXPECT_EQ(CORVANTA_OK, set(VlanDiscardUntaggedFrames_snmp, true));
    EXPECT_EQ("1|3||0|0\n", sql("SELECT * FROM BridgeFilter"));
    EXPECT_EQ(CORVANTA_OK, name(VlanDefaultWanInterface, ""));
    EXPECT_EQ("br1\n", sql("SELECT Name FROM Bridge"));
    EXPECT_EQ("", sql("SELECT * FROM BridgeFilter"));
}

} // namespace
