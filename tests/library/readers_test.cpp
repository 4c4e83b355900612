// The readers by themselves, on sources that say anything.

#include "tests/library/Platform.h"

#include "frame/Wrapper.h"
#include "readers/AtmFile.h"
#include "readers/MappingTable.h"
#include "readers/SpeedInfo.h"
#include "readers/Table.h"

#include <array>

using namespace kavo::snmp;

namespace {

using ReadersTest = PlatformTest;

TEST_F(ReadersTest, MappingTableTranslatesNamesAndIndexes) {
    const std::string byName = "warning:MappingTbl: physicalIFNameToIndex: ",
                      byIndex = "warning:MappingTbl: indexToLogicalIfName: ",
                      noIndex = byIndex + "cannot find index in MappingTable: ";
    MappingTable table;
    EXPECT_EQ("MappingTable[size=0:0]", table.toString());
    EXPECT_EQ("", table.indexToLogicalIfName(2));
    EXPECT_LOG(noIndex + "2");
    table.initialize(false);
    EXPECT_EQ(14U, table.size());

    for (const auto& [name, index] : {std::pair("eth0", 2), {"ppp3", 13}, {"n/a", 0}})
        EXPECT_EQ(index, table.physicalIFNameToIndex(name)) << name;
    for (const auto& [index, name] : {std::pair(8, "VC1"), {13, "DHCP3"}, {0, "N/A"}})
        EXPECT_EQ(name, table.indexToLogicalIfName(index)) << index;
    EXPECT_LOG();
    for (const char* name : {"", "ETH0"})
        EXPECT_EQ(0, table.physicalIFNameToIndex(name));
    EXPECT_LOG(byName + "empty physicalIfName (length==0), returning index = 0",
               byName + "cannot find physicalIfName in MappingTable: ETH0");
    for (const int index : {14, -1})
        EXPECT_EQ("N/A", table.indexToLogicalIfName(index));
    EXPECT_LOG(noIndex + "14", byIndex + "index is lower than 0: -1", noIndex + "-1");
}

std::string openVpis(AtmFile& file) {
    std::string open;
    for (int vpi = 0; vpi < AtmFile::vpiCount; ++vpi)
        if (file.contains(vpi))
            open += std::to_string(vpi) + " ";
    return open;
}

TEST_F(ReadersTest, AtmFileFindsTheVpisOfAnyFile) {
    const std::string path = " file /proc/net/atm/pvc using defaults";
    const std::string unread = "warning:AtmFile: initialize: could not read" + path;
    const std::string unclosed = "warning:AtmFile: initialize: could not close" + path;
    const std::string to1020 = "VCI VPI\n" + std::string(1011, 'x') + "\n"; // of 1023 that are read
    const std::string noNumber = "warning:AtmFile: initialize: no VPI in row 3: ";
    const std::string vpi = "error:AtmFile: initialize: VPI ",
                      outOfRange = " is out of range for vpiList, max idx is 19";
    const struct {
        const char* name;
        Answer file;
        std::string open;
        Lines log = {};
    } cases[] = {
        {"two circuits", "Itf VPI VCI\n  0   0 32 UBR\n  0   8 35\n  0   8 36\n", "0 8 "},
        {"empty", "", "", {unread}},
        {"nothing but a read error", Answer("", Answer::Fault::read), "", {unread}},
        {"runs of newlines", "\n\nItf VPI\n\n\n0 4\n\n0 5", "4 5 "},
        {"a later header is none", "0 1\nItf VPI\n0 8\n", ""},
        {"no VPI in the header", "Itf vpi V PI\n0 8 8\n", ""},
        {"the first field with VPI, between blanks", "Itf\tVPI VPI\n2\t3 4\n", "2 "},
        {"limits",
         "VPI\n19\n20\n-2147483649\n-1\n0",
         "0 19 ",
         {vpi + "20" + outOfRange, vpi + "-2147483648" + outOfRange, vpi + "-1" + outOfRange}},
        {"decimal, as a stream reads it", "VPI\n+7\n010\n0x9\n6y\n\t9", "0 6 7 9 10 "},
        {"no number", "Itf VPI\n0 3\n0 +-5 2\n0 4", "3 4 ", {noNumber + "+-5"}},
        {"short lines", "Itf VPI\n8\n \n1 9\n", "9 "},
        {"a number cut by the limit", to1020 + "0 18\n", "1 "},
        {"closing fails", Answer("VPI\n5\n", Answer::Fault::close), "5 ", {unclosed}},
        {"a late read error", Answer("VPI\n5\n", Answer::Fault::read), "5 "}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AtmFile file;
        platform.circuits = "VPI\n17\n"; // an older list must go
        file.initialize(false);
        platform.circuits = c.file;
        file.initialize(false);
        EXPECT_TRUE(file.m_bInitalized);
        EXPECT_EQ(c.log, platform.takeLog());
        EXPECT_EQ(c.open, openVpis(file));
    }
}

TEST_F(ReadersTest, AtmFileMissingOrLong) {
    {
        AtmFile file;
        file.initialize(false);
        EXPECT_FALSE(file.m_bInitalized);
        for (std::size_t size = 400; size <= 1023; ++size) { // of a file, no more is read
            platform.circuits = "VPI\n8\n" + std::string(size - 6, ' ');
            file.initialize(true);
            EXPECT_EQ("tracedo:AtmFile: initialize: file read in:\n" + platform.circuits.text,
                      platform.takeLog().at(1));
        }
        platform.circuits = notStarted;
        file.initialize(true);
        EXPECT_TRUE(file.m_bInitalized && Wrapper::getInstance()->m_bVerbose);
        file.m_bVerbose = false;
        EXPECT_EQ("8 ", openVpis(file));
        EXPECT_EQ(1, file.size());
        file.m_bVerbose = true;
    }
    EXPECT_LOG("tracedo:AtmFile: initialize: trying to open file /proc/net/atm/pvc",
               "tracedo:AtmFile: initialize: unable to open file /proc/net/atm/pvc using defaults",
               "tracedo:AtmFile: ~AtmFile: destruction");
}

class TableTest : public PlatformTest {
protected:
    TableTest() { EXPECT_TRUE(table.initialize(false) && table.m_bInitalized); }

    Table table{"Atm"};
    const std::string size = "quorlet \"size Atm;\"", row2 = "quorlet \"selectrow Atm 2;\"",
                      popenError = "error:Wrapper: popen error", error = "error:Table: ";
};

TEST_F(TableTest, CountsRows) {
    const std::pair<const char*, int> counts[] = {
        {"0x10", 16}, {"0X1f\n", 31},         {"010", 8},   {"08", 0},
        {" 7 x", 7},  {"Database locked", 0}, {"-2\n", -2}, {"99999999999\n", -1}};
    for (const auto& [answer, rows] : counts) {
        platform.script({answer});
        EXPECT_EQ(rows, table.size()) << answer;
        EXPECT_EQ(rows, table.m_iRowCount);
        EXPECT_RUN(size);
    }
    EXPECT_LOG();
    for (std::size_t length = 100; length < 130; ++length) {
        platform.script({"3\n"});
        Table named(std::string(length, 'x'));
        named.initialize(false);
        EXPECT_EQ(3, named.size());
        EXPECT_RUN("quorlet \"size " + named.m_sTableName + ";\"");
    }
    table.m_iRowCount = 5;
    platform.script({notStarted, Answer("", Answer::Fault::read)});
    for (int times = 0; times < 2; ++times) {
        EXPECT_EQ(0, table.size());
        EXPECT_EQ(5, table.m_iRowCount) << "a failed count leaves it";
    }
    EXPECT_LOG(popenError, error + "size: could not popen " + size, "error:Wrapper: fgets error",
               error + "size: could not read programs output " + size);
}

TEST_F(TableTest, RefreshesTheCountForRowsBelowIt) {
    const struct {
        int known;
        std::deque<Answer> answers;
        int count;
    } cases[] = {{-1, {"4\n", "a|b\n"}, 4},
                 {3, {"9\n", "a|b\n"}, 9},
                 {2, {"a|b\n"}, 2},
                 {3, {"", "a|b\n"}, 0}};
    for (const auto& c : cases) {
        table.m_iRowCount = c.known;
        platform.script(c.answers);
        EXPECT_TRUE(table.readRow(2));
        EXPECT_RUN(c.known != 2 ? Lines{size, row2} : Lines{row2});
        EXPECT_EQ(c.count, table.m_iRowCount);
        EXPECT_EQ(c.answers.back().text, table.m_szLine);
    }
    platform.takeLog();
    platform.script({notStarted});
    EXPECT_FALSE(table.readRow(2));
    EXPECT_LOG(popenError, error + "read: could not popen " + row2);
}

TEST_F(TableTest, HasTheVpiOfAtmOnly) {
    Table bridge("Bridge"), lower("atm");
    bridge.initialize(false);
    lower.initialize(false);
    bridge.m_iRowCount = lower.m_iRowCount = table.m_iRowCount = 0;
    platform.script({"1|2|3\n", "1|2|3\n", "1|2|3\n", ""});
    EXPECT_EQ(3, lower.getIntegerValue("vPI", 0));
    EXPECT_EQ(0, bridge.getIntegerValue("Vpi", 0));
    EXPECT_EQ(0, table.getIntegerValue("Vci", 0));
    EXPECT_EQ(0, table.getIntegerValue("Vci", 2));
    const std::string warning = "warning:Table: ";
    EXPECT_LOG(warning + "getIntegerValue: unsupported table Bridge",
               warning + "getIntegerValue: unsupported column Vci in table Atm",
               error + "read: could not read programs output " + row2,
               warning + "read: could not read row 2 from table Atm");
}

using Rates = std::array<unsigned, 4>; // actual down, actual up, attainable down, attainable up

Rates ratesOf(const speedInfo_s& info) {
    return {info.dslActualDataRateDown, info.dslActualDataRateUp, info.dslAttainableDataRateDown,
            info.dslAttainableDataRateUp};
}

TEST_F(ReadersTest, SpeedInfoTakesTheRatesFromTheGroup) {
    const std::string heading = "Line Rate Information", down = heading + "   Down      Up\n";
    const std::string rates = "Actual Data Rate:       5696      1024\n"
                              "Attainable Data Rate:   6144      1280\n";
    const Rates downFirst = {5696, 1024, 6144, 1280}, upFirst = {1024, 5696, 1280, 6144};
    const std::string noName = "token ':'", noDown = "DOWN value", noUp = "UP value";
    const std::string dots = std::string(30, '.') + "Down Up\n";
    const struct {
        std::string output;
        Rates expected;
        std::string missing = "", line = ""; // what a warning says
    } cases[] = {
        {"State: UP\n\n" + down + rates + "end\n", downFirst},
        {down + "Attainable:3 4\nxAttainableActual: 1 2", {1, 2, 3, 4}},
        {"line rate information   Down\n" + rates, {}},
        {down + rates + heading + "\nActual: 7 8\nx: 1 1\n", {8, 7, 6144, 1280}},
        // the token at offset 22 of the heading's line
        {heading + " xDownstream\n" + rates, downFirst},
        {"  " + heading + " Down Up\n" + rates, upFirst},
        {heading + "Down Up\n" + rates, upFirst},
        {dots + heading + "\n" + rates, upFirst},
        {down + "Actual: :5 4294967295\n", {0, 4294967295U, 0, 0}},
        {down + "actual: 1 2\nattainable: 3 4\n", {}},
        // what is missing counts as 0
        {heading + "\nActual:\nAttainable: 3 4\n", {0, 0, 4, 3}, noUp, "Actual:\n"},
        {down + ":::", {}, noName, ":::"},
        {down + "\n" + rates, {5696, 1024, 0, 0}, noDown, "\n"},
        {down + rates + down + "Actual:1\n", {1, 0, 6144, 1280}, noUp, "Actual:1\n"},
        // each piece of a long line is a line
        {down + "x: 1 2" + std::string(249, ' ') + rates, {5696, 1024, 0, 0}},
    };
    SpeedInfo reader;
    reader.initialize(false);
    speedInfo_s info;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.output);
        platform.script({c.output});
        info = {1, 2, 3, 4};
        EXPECT_TRUE(reader.getSpeedInfo(&info));
        EXPECT_EQ(c.expected, ratesOf(info));
        EXPECT_EQ(c.missing.empty() ? Lines{}
                                    : Lines{"warning:SpeedInfo: readDSLInfo: " + c.missing +
                                            " not found in line: " + c.line},
                  platform.takeLog());
        EXPECT_RUN("vellstat info");
    }
    platform.script({Answer(down + rates, Answer::Fault::close), "", notStarted});
    EXPECT_TRUE(reader.getSpeedInfo(&info));
    EXPECT_LOG("error:Wrapper: pclose error");
    EXPECT_TRUE(reader.readDSLInfo(&info));
    EXPECT_EQ(downFirst, ratesOf(info)) << "left as it was";
    EXPECT_FALSE(reader.getSpeedInfo(&info));
    EXPECT_LOG("error:Wrapper: popen error",
               "error:SpeedInfo: read: could not popen vellstat info");
    EXPECT_EQ((Rates{}), ratesOf(info));
}

} // namespace
