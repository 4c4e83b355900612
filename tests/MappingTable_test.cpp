#include "tests/Platform.h"

#include "readers/MappingTable.h"

using kavo::snmp::MappingTable;

namespace {

using MappingTableTest = PlatformTest;

TEST_F(MappingTableTest, TranslatesNamesAndIndexes) {
    const std::string byName = "warning:MappingTbl: physicalIFNameToIndex: ",
                      byIndex = "warning:MappingTbl: indexToLogicalIfName: ",
                      noName = byName + "cannot find physicalIfName in MappingTable: ",
                      noIndex = byIndex + "cannot find index in MappingTable: ";
    MappingTable table;
    EXPECT_EQ(0U, table.size());
    EXPECT_EQ("MappingTable[size=0:0]", table.toString());
    EXPECT_EQ("", table.indexToLogicalIfName(2));
    EXPECT_LOG(noIndex + "2");
    table.initialize(false);
    table.initialize(false);
    EXPECT_TRUE(table.m_bInitalized);
    EXPECT_EQ(14U, table.size());

    for (const auto& [name, index] : {std::pair("eth0", 2), {"ppp3", 13}, {"n/a", 0}})
        EXPECT_EQ(index, table.physicalIFNameToIndex(name)) << name;
    for (const auto& [index, name] : {std::pair(8, "VC1"), {13, "DHCP3"}, {0, "N/A"}})
        EXPECT_EQ(name, table.indexToLogicalIfName(index)) << index;
    EXPECT_LOG();
    for (const char* name : {"", "ETH0", "eth0 "})
        EXPECT_EQ(0, table.physicalIFNameToIndex(name));
    EXPECT_LOG(byName + "empty physicalIfName (length==0), returning index = 0", noName + "ETH0",
               noName + "eth0 ");
    for (const int index : {14, -1})
        EXPECT_EQ("N/A", table.indexToLogicalIfName(index));
    EXPECT_LOG(noIndex + "14", byIndex + "index is lower than 0: -1", noIndex + "-1");
}

} // namespace
