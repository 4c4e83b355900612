#include "tests/Platform.h"

#include "frame/SnmpConfigHandler.h"

#include <cstring>
#include <new>
#include <set>

namespace {

class MemoryTest : public PlatformTest {
protected:
    MemoryTest() {
        platform.circuits = "VPI\n1\n2\n";
        platform.clock = 0;
        platform.client = [](const std::string& command) {
            if (command == "vellstat info")
                return "Line Rate Information   Down\nActual: 1 2\nAttainable: 3 4\n";
            return command.find("selectrow Atm") == std::string::npos ? "2\n" : "1|1|2|35\n";
        };
    }
};

/** A call's result as text. */
using Call = std::function<std::string()>;

template <typename LibraryCall>
Call giving(LibraryCall call) {
    return [call] {
        if constexpr (std::is_same_v<decltype(call()), char*>)
            return taken(counted(call));
        else
            return std::to_string(counted(call));
    };
}

int value;
char text[200];

TEST_F(MemoryTest, EveryExportedFunctionFailsWholly) {
    const speedInfo_s rates = {1, 2, 3, 4};
    speedInfo_s info;
    const struct {
        const char* name;
        Call call;
        std::set<std::string> failures;
    } cases[] = {
        {"initialize", giving([] { return initialize(m_bVerbose); }), {"0"}},
        {"report", giving(getLayer2IfStatus), {"", "(null)"}},
        {"rates", giving([&] { return getSpeedInfo(&info); }), {"0"}},
        {"rates as text", giving([&] { return speedInfoToString(&rates); }), {"(null)"}},
        {"index", giving([] { return physicalIFNameToIndex("eth0"); }), {"0"}},
        {"no index", giving([] { return physicalIFNameToIndex("a name of some length"); }), {"0"}},
        {"name",
         giving([] { return indexToLogicalIfName(1, text, 200), text[0] == 'L' ? 1 : 0; }),
         {"0"}},
        {"table", giving(mappingTableToString), {"(null)"}},
        {"agent row", giving(getRowSnmpAgent), {"", "(null)"}},
        {"time", giving([] { return time2string() == "xx.xx.xx" ? 0 : 1; }), {"0"}},
        {"test method", giving(testMethod2), {"0"}},
        {"command", giving([] { return call_cmd(std::strcpy(text, "quorlet"), 200, 7); }), {"1"}},
        {"integer",
         giving([] { return config_int_access_by_id(access_set, &value, "A", "E", 1); }),
         {"1"}},
        {"key", giving([] { return config_int_read_by_key(&value, "B", "I", "N", "b"); }), {"1"}},
        {"text",
         giving(
             [] { return config_string_access_by_id(access_get, text, 20, &value, "B", "N", 1); }),
         {"1"}},
    };
    for (const bool verbose : {false, true}) {
        ASSERT_EQ(1, initialize(verbose));
        for (const auto& c : cases) {
            SCOPED_TRACE(c.name);
            const std::string whole = c.call();
            const long kept = Allocations::live();
            EXPECT_TRUE(kept == 0 || std::string("initialize") == c.name) << kept;
            withEachAllocationFailing([&] {
                const std::string result = c.call();
                EXPECT_TRUE(result == whole || c.failures.count(result)) << result;
                EXPECT_LE(Allocations::live(), kept);
            });
            EXPECT_EQ(whole, c.call()) << "a later call works";
            platform.takeLog();
        }
    }
    ASSERT_EQ(1, initialize(0));
}

TEST_F(MemoryTest, ReadersLetTheFailureThrough) {
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
