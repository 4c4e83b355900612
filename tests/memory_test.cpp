#include "tests/Platform.h"

#include "frame/SnmpConfigHandler.h"
#include "frame/Wrapper.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

using MemoryTest = PlatformTest;

Answer deviceAnswer(const std::string& command) {
    if (command == "vellstat info")
        return "Line Rate Information   Down\nActual: 1 2\nAttainable: 3 4\n";
    if (command.find("size Atm") != std::string::npos)
        return "2\n";
    if (command.find("selectrow Atm") != std::string::npos)
        return "1|1|2|35\n";
    return "5\n";
}

/** What a call of the library's gives as text, and what it gives when it fails. */
struct Case {
    const char* name;
    std::function<std::string()> call;
    Lines failures;
};

template <typename LibraryCall>
auto counted(LibraryCall call) {
    Allocations allocations;
    return call();
}

TEST_F(MemoryTest, EveryExportedFunctionFailsWholly) {
    static int value;
    static char text[200];
    const char* const command = " quorlet \" size Atm ;\" ";
    const Case cases[] = {
        {"initialize",
         [] { return std::to_string(counted([] { return initialize(m_bVerbose); })); },
         {"0"}},
        {"report",
         [] { return taken(counted([] { return getLayer2IfStatus(); })); },
         {"", "(null)"}},
        {"rates",
         [] {
             return std::to_string(counted([] {
                 speedInfo_s info;
                 return getSpeedInfo(&info);
             }));
         },
         {"0"}},
        {"rates as text",
         [] {
             return taken(counted([] {
                 const speedInfo_s info = {1, 2, 3, 4};
                 return speedInfoToString(&info);
             }));
         },
         {"(null)"}},
        {"index",
         [] { return std::to_string(counted([] { return physicalIFNameToIndex("eth0"); })); },
         {"0"}},
        {"unknown name",
         [] {
             return std::to_string(counted(
                 [] { return physicalIFNameToIndex("a name too long to be kept in place"); }));
         },
         {"0"}},
        {"name",
         [] {
             counted([] { return indexToLogicalIfName(1, text, sizeof text), 0; });
             return std::string(text);
         },
         {""}},
        {"table", [] { return taken(counted([] { return mappingTableToString(); })); }, {"(null)"}},
        {"agent row",
         [] { return taken(counted([] { return getRowSnmpAgent(); })); },
         {"", "(null)"}},
        {"time",
         [] {
             platform.clock = 0;
             const bool whole = counted([] { return time2string() != "xx.xx.xx"; });
             return std::string(whole ? "whole" : "none");
         },
         {"none"}},
        {"test method",
         [] { return std::to_string(counted([] { return testMethod2(); })); },
         {"0"}},
        {"command",
         [command] {
             return std::to_string(counted([command] {
                 std::strcpy(text, command);
                 return call_cmd(text, sizeof text, 20);
             }));
         },
         {"1"}},
        {"integer",
         [] {
             return std::to_string(counted(
                 [] { return config_int_access_by_id(access_set, &value, "Atm", "Enabled", 1); }));
         },
         {"1"}},
        {"key",
         [] {
             return std::to_string(counted(
                 [] { return config_int_read_by_key(&value, "Bridge", "Id", "Name", "br1"); }));
         },
         {"1"}},
        {"text",
         [] {
             return std::to_string(counted([] {
                 return config_string_access_by_id(access_get, text, 20, &value, "Bridge", "Name",
                                                   1);
             }));
         },
         {"1"}},
    };
    for (const bool verbose : {false, true}) {
        platform.client = deviceAnswer;
        ASSERT_EQ(1, initialize(verbose));
        for (const Case& c : cases) {
            SCOPED_TRACE(c.name);
            const bool keepsHandler = std::strcmp(c.name, "initialize") == 0;
            platform.circuits = "VPI\n1\n2\n";
            const std::string whole = c.call();
            const long kept = Allocations::live();
            EXPECT_TRUE(keepsHandler || kept == 0) << kept;
            withEachAllocationFailing([&] {
                const std::string result = c.call();
                EXPECT_TRUE(result == whole ||
                            std::count(c.failures.begin(), c.failures.end(), result))
                    << result;
                EXPECT_LE(Allocations::live(), kept);
            });
            EXPECT_EQ(whole, c.call()) << "a later call works";
            platform.takeLog();
        }
    }
    ASSERT_EQ(1, initialize(0));
}

TEST_F(MemoryTest, ReadersLetTheFailureThrough) {
    platform.client = deviceAnswer;
    kavo::snmp::SnmpConfigHandler handler;
    handler.initialize();
    int refused = 0;
    withEachAllocationFailing([&] {
        Allocations allocations;
        try {
            handler.getLayer2IfStatus();
        } catch (const std::bad_alloc&) {
            ++refused;
        }
    });
    EXPECT_GT(refused, 4);
}

} // namespace
