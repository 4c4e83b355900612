#include "tests/Platform.h"

#include "frame/Wrapper.h"
#include "readers/MappingTable.h"

using kavo::snmp::MappingTable;

namespace {

using MappingTableTest = PlatformTest;

const std::string noName = "warning:MappingTbl: physicalIFNameToIndex: ";
const std::string noIndex = "warning:MappingTbl: indexToLogicalIfName: ";
const std::string notFound = noIndex + "cannot find index in MappingTable: ";

TEST_F(MappingTableTest, TranslatesNamesAndIndexes) {
    MappingTable table;
    EXPECT_EQ(0U, table.size());
    EXPECT_EQ("MappingTable[size=0:0]", table.toString());
    EXPECT_EQ("", table.indexToLogicalIfName(2));
    EXPECT_EQ(Lines{notFound + "2"}, platform.takeLog());
    table.initialize(false);
    const std::string whole = table.toString();
    table.initialize(false);
    EXPECT_EQ(whole, table.toString());
    EXPECT_TRUE(table.m_bInitalized);
    EXPECT_EQ(14U, table.size());

    const struct {
        const char* name;
        int index;
        Lines log;
    } names[] = {
        {"eth0", 2, {}},
        {"ppp3", 13, {}},
        {"n/a", 0, {}},
        {"", 0, {noName + "empty physicalIfName (length==0), returning index = 0"}},
        {"ETH0", 0, {noName + "cannot find physicalIfName in MappingTable: ETH0"}},
        {"eth0 ", 0, {noName + "cannot find physicalIfName in MappingTable: eth0 "}},
    };
    for (const auto& c : names) {
        EXPECT_EQ(c.index, table.physicalIFNameToIndex(c.name)) << c.name;
        EXPECT_EQ(c.log, platform.takeLog());
    }
    const struct {
        int index;
        const char* name;
        Lines log;
    } indexes[] = {
        {8, "VC1", {}},
        {13, "DHCP3", {}},
        {0, "N/A", {}},
        {14, "N/A", {notFound + "14"}},
        {-1, "N/A", {noIndex + "index is lower than 0: -1", notFound + "-1"}},
    };
    for (const auto& c : indexes) {
        EXPECT_EQ(c.name, table.indexToLogicalIfName(c.index));
        EXPECT_EQ(c.log, platform.takeLog());
    }
}

TEST_F(MappingTableTest, SwitchesTheWrapperToo) {
    {
        MappingTable table;
        table.initialize(true);
        EXPECT_TRUE(Wrapper::getInstance()->m_bVerbose);
    }
    EXPECT_EQ("tracedo:MappingTbl: ~MappingTable: destruction", platform.log.back());
    MappingTable().initialize(false);
    EXPECT_FALSE(Wrapper::getInstance()->m_bVerbose);
}

} // namespace
