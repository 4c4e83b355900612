// The whole road: the library, the shell, the client and its database, the circuit list and the
// DSL tool. Each test runs on a device of its own. What the other sets do to a real database, the
// agent's tests see.

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

    static std::string report() {
        char* text = getLayer2IfStatus();
        const std::string copy = text;
        free(text);
        return copy;
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
    int on = 1;
    int off = 2;
    EXPECT_EQ(CORVANTA_OK, AtmEnabled_snmp(access_set, &on, 4));
    EXPECT_EQ("7|MPoA|wan4|SHDSL|4|1\n", sql("SELECT * FROM NetworkSetupNode WHERE Id > 6"));
    EXPECT_EQ(CORVANTA_OK, AtmEnabled_snmp(access_set, &off, 4));
    EXPECT_EQ("4|0|4|32|atm4|0\n", sql("SELECT * FROM Atm WHERE Id = 4"));
    EXPECT_EQ("6\n", sql("SELECT count(*) FROM NetworkSetupNode"));
    EXPECT_EQ(CORVANTA_UNKNOWN_ROW, AtmEnabled_snmp(access_set, &on, 9));
    std::signal(SIGCHLD, before);
}

} // namespace
