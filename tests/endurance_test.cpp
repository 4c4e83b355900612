// What a host does for years: nothing grows.

#include "tests/Platform.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace {

using EnduranceTest = PlatformTest;

/// What the process has: open descriptors, and pages in memory.
std::pair<long, long> held() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return {std::distance(begin(descriptors), end(descriptors)), resident};
}

TEST_F(EnduranceTest, ReportsRefreshesAndSetsLeaveNothingBehind) {
    platform.circuits = "VPI\n1\n2\n";
    platform.client = [](const std::string& command) {
        if (command.find("selectrow BridgeInterface 1 ") != std::string::npos)
            return "Unknown row\n";
        return command.find("selectrow Atm") == std::string::npos ? "2\n" : "1|1|2|35\n";
    };
    ASSERT_EQ(1, initialize(0));
    const auto run = [](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            EXPECT_EQ("VC2=1|PPPoE2=1|VC2=1|PPPoE2=1", taken(getLayer2IfStatus()));
            update_managed_objects();
            int circuit = 1 + i % 2;
            EXPECT_EQ(CORVANTA_OK, AtmEnabled_snmp(access_set, &circuit, 1));
            char wan[] = "wan1";
            int length = 4;
            EXPECT_EQ(CORVANTA_OK, VlanWanInterface(access_set, wan, 5, &length, 1));
            platform.commands.clear();
            platform.takeLog();
        }
    };
    run(1000);
    const auto [descriptors, pages] = held();
    run(10000);
    const auto [laterDescriptors, laterPages] = held();
    EXPECT_EQ(descriptors, laterDescriptors);
    const long grown = (laterPages - pages) * sysconf(_SC_PAGESIZE);
#ifdef __SANITIZE_ADDRESS__
    (void)grown; // freed memory is kept aside there, to find its late use
#else
    EXPECT_LT(grown, 256 * 1024) << "bytes in 10000 rounds of some 60 client runs";
#endif
}

} // namespace
