// Too little memory.

#include "tests/library/Platform.h"

#include "objects/data_cache.h"
#include "objects/managed_objects.h"

#include <set>

namespace {

class MemoryTest : public PlatformTest {
protected:
    MemoryTest() {
        platform.circuits = "VPI\n1\n2\n";
        platform.client = [](const std::string& command) {
            if (command == "vellstat info")
                return "Line Rate Information   Down\nActual: 1 2\nAttainable: 3 4\n";
            if (command.find("selectrow BridgeInterface 1 ") != std::string::npos)
                return "Unknown row\n";
            return command.find("selectrow Atm") == std::string::npos ? "2\n" : "1|1|2|35\n";
        };
        EXPECT_EQ(1, initialize(0));
    }
};

/// A call that gives its result as text.
template <typename LibraryCall>
std::function<std::string()> giving(LibraryCall call) {
    return [call] {
        if constexpr (std::is_same_v<decltype(call()), char*>)
            return taken(counted(call));
        else
            return std::to_string(counted(call));
    };
}

int cacheRefreshed() {
    update_managed_objects();
    update_managed_objects();
    delete std::exchange(mgmt_o.cache, nullptr);
    return 0;
}

/// What a set of a VLAN object has run, when it says that it succeeded.
int commandsOfATag() {
    int on = 1;
    platform.commands.clear();
    return VlanDiscardTag_snmp(access_set, &on, 1) == 0 ? static_cast<int>(platform.commands.size())
                                                        : -1;
}

/// A VLAN object that cannot be switched off does not stop it.
int defaultWanTakenFromAVlan() {
    char text[] = "2";
    int length = 1;
    mgmt_o.cache->vlan_intern[1].Enable = 1;
    return VlanDefaultWanInterface(access_set, text, sizeof text, &length);
}

/// What leaks on the way is found under AddressSanitizer.
TEST_F(MemoryTest, AnExportedFunctionFailsWholly) {
    const speedInfo_s rates = {1, 2, 3, 4};
    speedInfo_s info;
    char text[9];
    const struct {
        const char* name;
        std::function<std::string()> call;
        std::set<std::string> failures;
    } cases[] = {
        {"report", giving(getLayer2IfStatus), {"", "(null)"}},
        {"rates", giving([&] { return getSpeedInfo(&info); }), {"0"}},
        {"rates as text", giving([&] { return speedInfoToString(&rates); }), {"(null)"}},
        {"index", giving([] { return physicalIFNameToIndex("a name of some length"); }), {"0"}},
        {"name", giving([&] { return indexToLogicalIfName(1, text, 9), text[0] == 'L'; }), {"0"}},
        {"table", giving(mappingTableToString), {"(null)"}},
        {"agent row", giving(getRowSnmpAgent), {"", "(null)"}},
        {"cache", giving(cacheRefreshed), {}},
        {"tag", giving(commandsOfATag), {"-1"}},
        {"default", giving(defaultWanTakenFromAVlan), {}},
        {"time", giving([] { return time2string() == "xx.xx.xx" ? 0 : 1; }), {"0"}},
    };
    for (const bool verbose : {false, true}) {
        ASSERT_EQ(1, initialize(verbose));
        for (const auto& c : cases) {
            SCOPED_TRACE(c.name);
            data_cache cache;
            for (data_cache::vlan_row& row : cache.vlan_intern)
                row.InterfaceName = "a name that needs memory";
            mgmt_o.cache = std::string(c.name) == "cache" ? nullptr : &cache;
            const std::string whole = c.call();
            withEachAllocationFailing([&] {
                const std::string result = c.call();
                EXPECT_TRUE(result == whole || c.failures.count(result)) << result;
            });
            EXPECT_EQ(whole, c.call()) << "a later call works";
            platform.takeLog();
        }
    }
    ASSERT_EQ(1, initialize(0));
}

} // namespace
