#include "tests/Platform.h"

#include "frame/SnmpConfigHandler.h"
#include "frame/Wrapper.h"
#include "objects/managed_objects.h"

#include <climits>
#include <cstring>
#include <map>
#include <set>

using kavo::snmp::SnmpConfigHandler;

namespace {

using CorvantaTest = PlatformTest;

const std::string wholeTable =
    "MappingTable[size=14:14, 0=n/a:N/A,1=lo:LOOPBACK,2=eth0:LAN,3=wlan1:WLAN1,4=wds0:WDS0,"
    "5=wds1:WDS1,6=wds2:WDS2,7=wds3:WDS3,8=wan1:VC1,9=wan2:VC2,10=wan3:VC3,11=ppp1:PPPoE1,"
    "12=ppp2:PPPoE2,13=ppp3:DHCP3]";
const Lines initializing = {
    "tracedo:SpeedInfo: initialize: entering",
    "tracedo:SpeedInfo: initialize: exiting with  m_bInitalized = 1",
    "tracedo:MappingTbl: initialize: entering",
    "tracedo:MappingTbl: initialize: printing Mapping Table: " + wholeTable,
    "tracedo:MappingTbl: initialize: exiting with  m_bInitalized = 1",
    "tracedo:corvanta: initialize: ConfigDBHandler() initialized successfully",
};

std::string warned(const std::string& text) {
    return "warning:corvanta: unable to " + text;
}

const std::string noRates = warned("fetch all speed related information");
const std::string noRatesText =
    warned("translate structure containing speed related information to string");

/** Calls every query where it must fail, and compares failure values and warnings. */
void expectEveryQueryToFail() {
    speedInfo_s info = {1, 2, 3, 4};
    char name[4] = "old";
    EXPECT_EQ("", taken(getLayer2IfStatus()));
    EXPECT_EQ(0, getSpeedInfo(&info));
    EXPECT_EQ("(null)", taken(speedInfoToString(&info)));
    EXPECT_EQ(0, physicalIFNameToIndex("eth0"));
    indexToLogicalIfName(2, name, 0);
    EXPECT_STREQ("old", name);
    indexToLogicalIfName(2, name, sizeof name);
    EXPECT_STREQ("", name);
    EXPECT_EQ("(null)", taken(mappingTableToString()));
    EXPECT_EQ("", taken(getRowSnmpAgent()));
    const Lines expected = {
        warned("fetch Layer2 interfaces states"),
        noRates,
        noRatesText,
        warned("fetch index for physical name  = eth0"),
        warned("fetch logical name for index = 2"),
        warned("fetch logical name for index = 2"),
        warned("fetch mapping table"),
        warned("fetch row of table SnmpAgent"),
    };
    EXPECT_EQ(expected, platform.takeLog());
    EXPECT_EQ(Lines{}, platform.takeCommands());
}

/** Nothing was initialized in this process yet. */
void beforeInitialize() {
    platform.script({});
    EXPECT_TRUE(!m_bVerbose && debug_level == 7 && m_iLogHandle == -1 && !mgmt_o.cache);
    expectEveryQueryToFail();
    EXPECT_EQ(5, isEnabled());
    EXPECT_EQ(0, testMethod2());

    int value = 1, length = 0;
    char text[20] = "";
    atm_entry entry = {};
    EXPECT_EQ(1, atm_access_c(access_get, &entry, 1, 0));
    EXPECT_EQ(1, VlanEnabled_snmp(access_get, &value, 1));
    EXPECT_EQ(1, VlanDiscardTag_snmp(access_set, &value, 1));
    EXPECT_EQ(1, VlanWanInterface(access_set, text, sizeof text, &length, 1));
    EXPECT_EQ(1, VlanDefaultWanInterface(access_set, text, sizeof text, &length));
    EXPECT_EQ(Lines{}, platform.takeCommands());
}

TEST(CorvantaDeathTest, BeforeInitializeEverythingFailsAndNothingRuns) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a process of its own
    EXPECT_EXIT(
        {
            beforeInitialize();
            _exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(CorvantaTest, InitializeSetsTheSwitchAndDropsTheCache) {
    EXPECT_EQ(1, initialize(0));
    EXPECT_FALSE(m_bVerbose);
    EXPECT_EQ(Lines{}, platform.takeLog());
    EXPECT_EQ("corvanta 3 24", platform.openedLog);

    mgmt_o.cache = reinterpret_cast<data_cache*>(&platform);
    EXPECT_EQ(1, initialize(-5));
    EXPECT_TRUE(m_bVerbose && Wrapper::getInstance()->m_bVerbose);
    EXPECT_EQ(nullptr, mgmt_o.cache);
    EXPECT_EQ(initializing, platform.takeLog());
    EXPECT_EQ(2, physicalIFNameToIndex("eth0")); // through the new handler
    EXPECT_EQ(1, initialize(0));
}

TEST_F(CorvantaTest, AHandlerThatFailedToInitializeAnswersNothing) {
    Wrapper::Destroy();
    std::set<std::string> reported;
    withEachAllocationFailing([&] {
        bool done = false;
        {
            SnmpConfigHandler handler;
            Allocations allocations;
            handler.initialize();
            done = handler.m_bInitalized;
        }
        EXPECT_EQ(done ? 0U : 1U, platform.log.size()) << "one line, of the first stage that fails";
        for (const std::string& line : platform.takeLog())
            reported.insert(line);
        Wrapper::Destroy();
    });
    const std::string stage = "error:SnmpCfgHdr: initialize: unable to instantiate ";
    EXPECT_EQ(
        (std::set<std::string>{stage + "MappingTable", stage + "SpeedInfo", stage + "Wrapper"}),
        reported);

    mgmt_o.cache = reinterpret_cast<data_cache*>(&platform);
    {
        Allocations allocations;
        Allocations::failFrom = 8; // well after the handler itself
        Allocations::failUntil = LONG_MAX;
        EXPECT_EQ(0, initialize(1));
    }
    Allocations::failFrom = Allocations::failUntil = 0;
    EXPECT_TRUE(m_bVerbose);
    EXPECT_NE(nullptr, mgmt_o.cache) << "reset on success only";
    mgmt_o.cache = nullptr;
    m_bVerbose = false;
    const Lines log = platform.takeLog();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ("error:corvanta: initialize: call to ConfigDBHandler.initialize() failed",
              log.back());
    EXPECT_EQ(1, initialize(0));
    EXPECT_EQ(2, physicalIFNameToIndex("eth0"));
}

TEST_F(CorvantaTest, QueriesPassOnWhatTheReadersSay) {
    ASSERT_EQ(1, initialize(0));
    EXPECT_EQ(wholeTable, taken(mappingTableToString()));
    EXPECT_EQ("==> FIL <==", taken(getRowSnmpAgent()));
    EXPECT_EQ(Lines{}, platform.takeLog());

    EXPECT_EQ(0, physicalIFNameToIndex("eth9"));
    EXPECT_EQ(1U, platform.takeLog().size()) << "the mapping table's warning only";
    EXPECT_EQ(0, physicalIFNameToIndex(nullptr));
    EXPECT_EQ(0, getSpeedInfo(nullptr));
    EXPECT_EQ("(null)", taken(speedInfoToString(nullptr)));
    EXPECT_EQ((Lines{warned("fetch index for physical name  = "), noRates, noRatesText}),
              platform.takeLog());

    platform.script({"Line Rate Information   Down\nActual: 7 8\n", notStarted});
    speedInfo_s info = {1, 2, 3, 4};
    EXPECT_EQ(1, getSpeedInfo(&info));
    EXPECT_EQ("SpeedInfo[dslActualDataRateDown=7,dslActualDataRateUp=8,"
              "dslAttainableDataRateDown=0,dslAttainableDataRateUp=0]",
              taken(speedInfoToString(&info)));
    EXPECT_EQ(0, getSpeedInfo(&info));
    EXPECT_EQ(0U, info.dslActualDataRateDown);
    const std::pair<int, std::string> states[] = {{1, "UP"}, {2, "DOWN"}, {0, "N/A"}, {3, "N/A"}};
    for (const auto& [state, text] : states)
        EXPECT_EQ(text, ly2State2String(state));
    EXPECT_STREQ("/tmp/quorhub.socket", SnmpConfigHandler::pszSocketFile);
}

TEST_F(CorvantaTest, LogicalNamesFitTheBuffer) {
    ASSERT_EQ(1, initialize(0));
    const struct {
        std::size_t size;
        const char* expected; // the 8 bytes after the call
    } cases[] = {{0, "zzzzzzzz"},  {1, "\0zzzzzzz"},   {3, "LA\0zzzzz"},
                 {4, "LAN\0zzzz"}, {6, "LAN\0\0\0zz"}, {8, "LAN\0\0\0\0\0"}};
    for (const auto& c : cases) {
        char buffer[8];
        std::memset(buffer, 'z', sizeof buffer);
        indexToLogicalIfName(2, buffer, c.size);
        EXPECT_EQ(std::string(c.expected, 8), std::string(buffer, 8)) << c.size;
    }
    EXPECT_EQ(Lines{}, platform.log);
}

TEST_F(CorvantaTest, TracesTheQueries) {
    ASSERT_EQ(1, initialize(1));
    platform.takeLog();
    EXPECT_EQ(2, physicalIFNameToIndex("eth0"));
    char name[8];
    indexToLogicalIfName(2, name, sizeof name);
    taken(getRowSnmpAgent());
    platform.script({notStarted});
    speedInfo_s info;
    getSpeedInfo(&info);
    const std::string handler = "tracedo:SnmpCfgHdr: ", own = "tracedo:corvanta: ";
    const Lines expected = {
        handler + "physicalIFNameToIndex: entering with eth0",
        handler + "physicalIFNameToIndex: exiting with index = 2 [eth0]",
        handler + "indexToLogicalIfName: entering",
        handler + "indexToLogicalIfName: exiting with logicalName = LAN [2]",
        own + "getRowSnmpAgent: entering",
        own + "getRowSnmpAgent: call to ConfigHandler->getRowSnmpAgent() returns ==> FIL <==",
        own + "getSpeedInfo: entering",
        handler + "getSpeedInfo: entering",
    };
    ASSERT_LT(expected.size(), platform.log.size());
    EXPECT_EQ(expected, Lines(platform.log.begin(), platform.log.begin() + 8));
    EXPECT_EQ(handler + "getSpeedInfo: exiting with 0", platform.log.back());
    ASSERT_EQ(1, initialize(0));
}

TEST_F(CorvantaTest, LocalTimeAsText) {
    setenv("TZ", "CET-1", 1);
    tzset();
    const struct {
        std::time_t clock;
        const char* text;
    } cases[] = {{1801641900, "03.02.2027 09:05:00"},
                 {-1, "01.01.1970 01:00:00"},
                 {253402297199, "31.12.9999 23:59:59"},
                 {253402297200, "xx.xx.xx"},
                 {LONG_MAX, "xx.xx.xx"}};
    for (const auto& c : cases) {
        platform.clock = c.clock;
        EXPECT_EQ(c.text, time2string());
    }
}

class ReportTest : public PlatformTest {
protected:
    ReportTest() { EXPECT_EQ(1, initialize(0)); }

    /** Answers the client runs of a report over these rows. */
    static std::deque<Answer> runsFor(const std::vector<int>& vpis) {
        const Answer count(std::to_string(vpis.size()) + "\n");
        std::deque<Answer> answers = {count};
        for (const int vpi : vpis) {
            answers.push_back(count);
            answers.push_back("1|1|" + std::to_string(vpi) + "|35\n");
        }
        return answers;
    }
};

TEST_F(ReportTest, NamesTheStateOfEveryCircuit) {
    const struct {
        std::vector<int> rows;
        const char* circuits;
        const char* report;
    } cases[] = {
        {{}, "VPI\n8\n", ""},
        {{8}, "VPI\n8\n", "VC8=1"},
        {{8}, "VPI\n", "VC8=2"},
        {{1, 2, 3, 8}, "VPI\n1\n8\n", "VC1=1|PPPoE1=1|VC2=2|PPPoE2=2|VC3=2|DHCP3=2|VC8=1"},
        {{3}, "VPI\n3\n", "VC3=1|DHCP3=1"},
        {{4, 0}, "VPI\n0\n", "VC4=2|VC0=1"},
        {{2, 2}, "VPI\n2\n", "VC2=1|PPPoE2=1|VC2=1|PPPoE2=1"},
    };
    for (const auto& c : cases) {
        platform.circuits = c.circuits;
        platform.script(runsFor(c.rows));
        EXPECT_EQ(c.report, taken(getLayer2IfStatus()));
        EXPECT_EQ(1 + 2 * c.rows.size(), platform.takeCommands().size());
        EXPECT_EQ(Lines{}, platform.takeLog());
    }
    platform.script(runsFor({25, -1}));
    EXPECT_EQ("VC25=2|VC-1=2", taken(getLayer2IfStatus()));
    EXPECT_EQ(2U, platform.takeLog().size()) << "the circuit list's range warnings";
    platform.script(runsFor(std::vector<int>(300, 1)));
    EXPECT_EQ(300U * 15 - 1, taken(getLayer2IfStatus()).size());
}

TEST_F(ReportTest, GoesOnAfterEachFailure) {
    const std::string size = "quorlet \"size Atm;\"", row0 = "quorlet \"selectrow Atm 0;\"",
                      row1 = "quorlet \"selectrow Atm 1;\"",
                      table = "error:Table: ", popen = ": could not popen ",
                      read = ": could not read programs output ",
                      unread = "warning:Table: read: could not read row ";
    const std::string wrapper = "error:Wrapper: popen error";
    const Lines all = {size, size, row0, size, row1};
    const Lines noRefresh = {size, size, row0, row1}; // row 1 is not below a count of 0
    const struct {
        std::deque<Answer> answers;
        const char* report;
        Lines commands, log;
    } cases[] = {
        {{notStarted}, "", {size}, {wrapper, table + "size" + popen + size}},
        {{""}, "", {size}, {table + "size" + read + size}},
        {{"Database locked\n"}, "", {size}, {}},
        {{"2\n", notStarted, "1|1|8\n", "2|1|9\n"},
         "VC8=1|VC9=2",
         noRefresh,
         {wrapper, table + "size" + popen + size}},
        {{"2\n", "", "1|1|8\n", "2|1|9\n"},
         "VC8=1|VC9=2",
         noRefresh,
         {table + "size" + read + size}},
        {{"2\n", "2\n", notStarted, "2\n", "2|1|9\n"},
         "VC0=2|VC9=2",
         all,
         {wrapper, table + "read" + popen + row0, unread + "0 from table Atm"}},
        {{"2\n", "2\n", "1|1|8\n", "2\n", ""},
         "VC8=1|VC0=2",
         all,
         {table + "read" + read + row1, unread + "1 from table Atm"}},
        {{"2\n", "2\n", "1|1|x\n", "2\n", "2|1|8\n"}, "VC0=2|VC8=1", all, {}},
        {{"2\n", "2\n", "1|1|8\n", "2\n", "Unknown row\n"},
         "",
         all,
         {warned("fetch Layer2 interfaces states")}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.log));
        platform.circuits = "VPI\n8\n";
        platform.script(c.answers);
        EXPECT_EQ(c.report, taken(getLayer2IfStatus()));
        EXPECT_EQ(c.commands, platform.takeCommands());
        EXPECT_EQ(c.log, platform.takeLog());
        EXPECT_EQ(0, platform.openStreams);
    }
}

TEST_F(ReportTest, TracesEveryStep) {
    ASSERT_EQ(1, initialize(1));
    platform.takeLog();
    platform.circuits = "Itf VPI\n\n0   1\n";
    platform.script(runsFor({1}));
    EXPECT_EQ("VC1=1|PPPoE1=1", taken(getLayer2IfStatus()));
    const std::string atm = "tracedo:AtmFile: initialize: ", table = "tracedo:Table: ",
                      trace = "tracedo:SnmpCfgHdr: getLayer2IfStatus: ",
                      debug = "debug:SnmpCfgHdr: getLayer2IfStatus: ", row = "1|1|1|35\n",
                      wrapper = "tracedo:Wrapper: ";
    const Lines expected = {
        "tracedo:corvanta: getLayer2IfStatus: entering",
        trace + "entering",
        trace + "read Atm file",
        atm + "trying to open file /proc/net/atm/pvc",
        atm + "file read in:\nItf VPI\n\n0   1\n",
        "debug:AtmFile: initialize: newline found at index 7",
        "debug:AtmFile: initialize: newline found at index 8",
        "debug:AtmFile: initialize: newline found at index 14",
        atm + "token = Itf VPI",
        atm + "  subtoken = Itf",
        atm + "  subtoken = VPI",
        atm + "string 'VPI' found in header line 1 at column 2, vpiIdx = 1",
        atm + "token = 0   1",
        atm + "  subtoken = 0",
        atm + "  subtoken = 1",
        atm + "  processing row 2, column = 2, found VPI = 1",
        atm + "contents of vpiList: vpiList[(0)=0,(1)=1,(2)=0,(3)=0,(4)=0,(5)=0,(6)=0,(7)=0,(8)=0,"
              "(9)=0,(10)=0,(11)=0,(12)=0,(13)=0,(14)=0,(15)=0,(16)=0,(17)=0,(18)=0,(19)=0,]",
        trace + "read Atm config table",
        table + "size: size of table Atm: 1",
        trace + "number of rows in table Atm: 1",
        table + "size: size of table Atm: 1",
        table + "read: number of rows in table Atm: 1",
        table + "read: row 0: " + row,
        table + "getIntegerValue: processing row 0: " + row,
        table + "getIntegerValue: table name in UPPER CASE: ATM",
        table + "getIntegerValue: request for Vpi in row " + row,
        wrapper + "Tokenize: tokenizing string using delims |: " + row,
        wrapper + "Tokenize: begIdx = 0,endIdx = 1, token = 1",
        wrapper + "Tokenize: begIdx = 2,endIdx = 3, token = 1",
        wrapper + "Tokenize: begIdx = 4,endIdx = 5, token = 1",
        wrapper + "Tokenize: begIdx = 6,endIdx = 9, token = 35\n",
        table + "getIntegerValue: resulting vector containing following tokens: 1,1,1,35\n,",
        debug + "row 0 contains Vpi = 1",
        "tracedo:AtmFile: contains: searching a_vpiVal 1 in m_eVpiList",
        debug + "layer 2 interface with idx = 1 is UP",
        debug + "ly2Status string = VC1=1|PPPoE1=1|",
        "tracedo:corvanta: getLayer2IfStatus: ly2States = VC1=1|PPPoE1=1",
    };
    // Every place that logs has a number of its own, the same each time.
    std::map<int, std::set<std::string>> placesByNumber;
    Lines log;
    for (std::size_t i = 0; i < platform.log.size(); ++i) {
        const std::string& line = platform.log[i];
        if (line.find("ToUpperCase") != std::string::npos)
            continue; // how often a name is turned to upper case is no matter
        log.push_back(line);
        EXPECT_GT(platform.logNumbers[i], 0);
        if (line.find("tracedo:SnmpCfgHdr: ") == 0)
            placesByNumber[platform.logNumbers[i]].insert(line);
    }
    EXPECT_EQ(expected, log);
    EXPECT_EQ(4U, placesByNumber.size());
    for (const auto& place : placesByNumber)
        EXPECT_EQ(1U, place.second.size());
    ASSERT_EQ(1, initialize(0));
}

TEST_F(ReportTest, KeyedReadsOfTheAtmTable) {
    SnmpConfigHandler handler;
    handler.initialize();
    handler.m_bVerbose = true;
    int value = 5;
    for (const char* table : {"ATM", "Atm ", "", "Bridge"})
        EXPECT_EQ(0, handler.getIntegerValue(value, table, "Vpi", "Id", "3"));
    EXPECT_EQ(Lines{}, platform.takeCommands());
    EXPECT_EQ(5, value);
    platform.script({"42\n", ""});
    EXPECT_EQ(0, handler.getIntegerValue(value, "Atm", "Vpi", "Id", "3"));
    EXPECT_EQ(42, value);
    EXPECT_TRUE(handler.m_atmTable.m_bVerbose && Wrapper::getInstance()->m_bVerbose);
    EXPECT_EQ(1, handler.getIntegerValue(value, "Atm", "Vpi", "Id", "3"));
    EXPECT_EQ(" quorlet \" selectkey Atm Id 3 Vpi ; \" ", platform.commands.back());
}

TEST_F(ReportTest, AFreshHandlerSaysNothing) {
    {
        SnmpConfigHandler handler;
        EXPECT_FALSE(handler.m_bVerbose || handler.m_bInitalized);
        EXPECT_THROW(handler.getSpeedInfo(nullptr), std::logic_error);
        EXPECT_THROW(handler.mappingTableToString(), std::logic_error);
        handler.initialize();
        handler.m_bVerbose = true;
    }
    EXPECT_EQ(Lines{"tracedo:SnmpCfgHdr: ~ConfigDBHandler: destruction"}, platform.takeLog());
}

} // namespace
