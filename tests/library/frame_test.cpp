// The exported status queries, what they forward to, and the Wrapper.

#include "tests/library/Platform.h"

#include "frame/SnmpConfigHandler.h"
#include "frame/Wrapper.h"
#include "objects/managed_objects.h"

#include <cstring>
#include <fstream>
#include <limits>
#include <locale>
#include <set>

using kavo::snmp::SnmpConfigHandler;

namespace {

using FrameTest = PlatformTest;

std::string warned(const std::string& text) {
    return "warning:corvanta: unable to " + text;
}

const std::string noRates = warned("fetch all speed related information"),
                  noName = warned("fetch logical name for index = 2"),
                  noRatesText = warned("translate structure containing speed related information "
                                       "to string");

/// Nothing was initialized in this process yet.
void beforeInitialize() {
    platform.script({});
    EXPECT_TRUE(!m_bVerbose && debug_level == 7 && m_iLogHandle == -1 && !mgmt_o.cache);
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
    EXPECT_EQ(0, testMethod2());
    EXPECT_EQ(5, isEnabled());
    EXPECT_LOG(warned("fetch Layer2 interfaces states"), noRates, noRatesText,
               warned("fetch index for physical name  = eth0"), noName, noName,
               warned("fetch mapping table"), warned("fetch row of table SnmpAgent"));

    int value = 1, length = 0;
    atm_entry entry = {};
    for (const int status :
         {atm_access_c(access_get, &entry, 1, 0), VlanEnabled_snmp(access_get, &value, 1),
          VlanDiscardTag_snmp(access_set, &value, 1),
          VlanWanInterface(access_set, name, sizeof name, &length, 1),
          VlanDefaultWanInterface(access_set, name, sizeof name, &length)})
        EXPECT_EQ(1, status);
}

TEST(FrameDeathTest, BeforeInitializeEverythingFailsAndNothingRuns) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a process of its own
    EXPECT_EXIT((beforeInitialize(), _exit(testing::Test::HasFailure())),
                testing::ExitedWithCode(0), "");
}

TEST_F(FrameTest, InitializeReportsAFailureAndDropsTheCacheOnSuccess) {
    std::set<std::string> reported;
    withEachAllocationFailing([&] {
        SnmpConfigHandler handler; // which leaves nothing behind
        counted([&] { return handler.initialize(), 0; });
        platform.takeLog();
        Wrapper::Destroy();
        mgmt_o.cache = reinterpret_cast<data_cache*>(&platform);
        const int done = counted([] { return initialize(1); });
        EXPECT_TRUE(m_bVerbose && (done == 1) == (mgmt_o.cache == nullptr));
        std::string errors;
        for (const std::string& line : platform.takeLog())
            errors += line.find("error:") == 0 ? line : "";
        EXPECT_EQ(done == 1, errors.empty());
        reported.insert(errors);
    });
    const std::string stage = "error:SnmpCfgHdr: initialize: unable to instantiate ",
                      error = "error:corvanta: initialize: ",
                      failed = error + "call to ConfigDBHandler.initialize() failed";
    EXPECT_EQ((std::set<std::string>{"", error + "unable to initialize ConfigDBHandler()",
                                     stage + "MappingTable" + failed, stage + "SpeedInfo" + failed,
                                     stage + "Wrapper" + failed}),
              reported);
    EXPECT_EQ(1, initialize(-5));
    EXPECT_TRUE(m_bVerbose && Wrapper::getInstance()->m_bVerbose);
    EXPECT_EQ("corvanta 3 24", platform.openedLog);
    EXPECT_EQ(2, physicalIFNameToIndex("eth0")) << "through the new handler";
    EXPECT_EQ(1, initialize(0));
    EXPECT_FALSE(m_bVerbose);
}

TEST_F(FrameTest, QueriesPassOnWhatTheReadersSay) {
    ASSERT_EQ(1, initialize(0));
    EXPECT_EQ("MappingTable[size=14:14, 0=n/a:N/A,", taken(mappingTableToString()).substr(0, 35));
    EXPECT_EQ("==> FIL <==", taken(getRowSnmpAgent()));
    platform.script({"Line Rate Information   Down\nActual: 7 8\n"});
    speedInfo_s info;
    EXPECT_EQ(1, getSpeedInfo(&info));
    EXPECT_EQ(7U, info.dslActualDataRateDown);
    indexToLogicalIfName(2, nullptr, 0); // asks for nothing
    EXPECT_LOG();
    EXPECT_EQ(0, physicalIFNameToIndex(nullptr));
    EXPECT_EQ(0, getSpeedInfo(nullptr));
    EXPECT_EQ("(null)", taken(speedInfoToString(nullptr)));
    indexToLogicalIfName(2, nullptr, 8);
    EXPECT_LOG(warned("fetch index for physical name  = "), noRates, noRatesText, noName);
    for (const auto& [state, text] : {std::pair(1, "UP"), {2, "DOWN"}, {0, "N/A"}, {3, "N/A"}})
        EXPECT_STREQ(text, ly2State2String(state));
    EXPECT_STREQ("/tmp/quorhub.socket", SnmpConfigHandler::pszSocketFile);

    for (const auto& [size, expected] :
         {std::pair(0, "zzzzzzzz"), {1, "\0zzzzzzz"}, {3, "LA\0zzzzz"}, {6, "LAN\0\0\0zz"}}) {
        char buffer[8];
        std::memset(buffer, 'z', sizeof buffer);
        indexToLogicalIfName(2, buffer, static_cast<std::size_t>(size));
        EXPECT_EQ(std::string(expected, 8), std::string(buffer, 8)) << size;
    }
}

TEST_F(FrameTest, LocalTimeAsText) {
    setenv("TZ", "CET-1", 1);
    tzset();
    for (const auto& [clock, text] : {std::pair(std::time_t(1801641900), "03.02.2027 09:05:00"),
                                      {-1, "01.01.1970 01:00:00"},
                                      {253402297199, "31.12.9999 23:59:59"},
                                      {253402297200, "xx.xx.xx"},
                                      {std::numeric_limits<std::time_t>::max(), "xx.xx.xx"}}) {
        platform.clock = clock;
        EXPECT_EQ(text, time2string());
    }
}

TEST_F(FrameTest, WrapperNumbersAreTheSameUnderAnyLocale) {
    struct Grouping : std::numpunct<char> {
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
    ASSERT_EQ(1, initialize(0));
    const speedInfo_s rates = {2048, 0, 4294967295U, 640};
    EXPECT_EQ("SpeedInfo[dslActualDataRateDown=2048,dslActualDataRateUp=0,"
              "dslAttainableDataRateDown=4294967295,dslAttainableDataRateUp=640]",
              taken(speedInfoToString(&rates)));
    platform.script({"1\n", "1\n", "1|1|1234\n"});
    EXPECT_EQ("VC1234=2", taken(getLayer2IfStatus()));
    EXPECT_LOG("warning:AtmFile: contains: a_vpiVal 1234 is out of range for vpiList, "
               "max idx is 19");
    std::locale::global(before);
}

TEST_F(FrameTest, WrapperIsOneUntilDestroyed) {
    Wrapper::Destroy();
    Wrapper& wrapper = *Wrapper::getInstance();
    EXPECT_TRUE(&wrapper == Wrapper::getInstance() && !wrapper.m_bVerbose);
    EXPECT_EQ((Lines{"a", "b", "c"}), wrapper.Tokenize(" a, b;c;", ",; "));
    EXPECT_EQ("AZ@[`{1", wrapper.ToUpperCase("az@[`{1"));
    EXPECT_TRUE(wrapper.initialize(true) && wrapper.m_bVerbose && wrapper.m_bInitalized);
    EXPECT_EQ("az@[`{1", wrapper.ToLowerCase("AZ@[`{1"));
    Wrapper::Destroy();
    Wrapper::Destroy();
    EXPECT_EQ(nullptr, Wrapper::m_pInstance);
    EXPECT_LOG("tracedo:Wrapper: ~Wrapper: Destruction");
}

class ReportTest : public PlatformTest {
protected:
    ReportTest() { EXPECT_EQ(1, initialize(0)); }

    /// Answers the client runs of a report over these rows.
    static std::deque<Answer> runsFor(const std::vector<int>& vpis) {
        const Answer count(std::to_string(vpis.size()) + "\n");
        std::deque<Answer> answers = {count};
        for (const int vpi : vpis)
            answers.insert(answers.end(), {count, "1|1|" + std::to_string(vpi) + "|35\n"});
        return answers;
    }
};

TEST_F(ReportTest, NamesTheStateOfEveryCircuit) {
    const std::string x250(250, 'x');
    const struct {
        std::deque<Answer> answers;
        const char *circuits, *report;
    } cases[] = {
        {runsFor({1, 2, 3, 8}), "1\n8", "VC1=1|PPPoE1=1|VC2=2|PPPoE2=2|VC3=2|DHCP3=2|VC8=1"},
        {runsFor({4, 0, 3, 3, 20, -1}), "0\n3",
         "VC4=2|VC0=1|VC3=1|DHCP3=1|VC3=1|DHCP3=1|VC20=2|VC-1=2"},
        // goes on after each failure
        {{notStarted}, "8", ""},
        {{"2\n", notStarted, "1|1|8\n", "2|1|9\n"}, "8", "VC8=1|VC9=2"},
        {{"2\n", "2\n", notStarted, "2\n", "2|1|9\n"}, "8", "VC0=2|VC9=2"},
        // the third field, whatever it is, of 255 characters; two separators are one
        {{"1\n", "1\n", "1|1|-8x\n"}, "8", "VC-8=2"},
        {{"1\n", "1\n", "1||8|35\n"}, "8", "VC35=2"},
        {{"1\n", "1\n", "a|b|c\n"}, "0", "VC0=1"},
        {{"1\n", "1\n", "1|1|99999999999|2\n"}, "8", "VC2147483647=2"},
        {{"1\n", "1\n", x250 + "|1|45\n"}, "8", "VC45=2"},
    };
    for (const auto& c : cases) {
        platform.circuits = std::string("VPI\n") + c.circuits;
        platform.script(c.answers);
        EXPECT_EQ(c.report, taken(getLayer2IfStatus()));
        for (const std::string& line : platform.takeLog())
            EXPECT_EQ(std::string::npos, line.find("corvanta")) << "the readers' lines only";
    }
    platform.script(runsFor(std::vector<int>(300, 1)));
    EXPECT_EQ(300U * 15 - 1, taken(getLayer2IfStatus()).size());
    EXPECT_LOG();
    for (const std::string& fewFields :
         Lines{"||1|2||", "||", x250 + "xx|1|8\n", "Unknown row\n"}) {
        platform.script({"2\n", "2\n", "1|1|8\n", "2\n", fewFields});
        EXPECT_EQ("", taken(getLayer2IfStatus()));
        EXPECT_LOG(warned("fetch Layer2 interfaces states"));
    }
    const std::string size = "quorlet \"size Atm;\"", row = "quorlet \"selectrow Atm ";
    EXPECT_RUN(size, size, row + "0;\"", size, row + "1;\"");
}

/// Every trace line of the status side, against trace.log.
TEST_F(ReportTest, TracesEveryStep) {
    platform.circuits = "VPI\n1";
    platform.script({"1\n", "1\n", "1|1|1", "Line Rate Information   Down\nX: 0x10 1"});
    ASSERT_EQ(1, initialize(1));
    taken(getLayer2IfStatus());
    speedInfo_s info;
    getSpeedInfo(&info);
    physicalIFNameToIndex("eth0");
    char name[8];
    indexToLogicalIfName(2, name, sizeof name);
    taken(getRowSnmpAgent());
    EXPECT_LT(40U, platform.logNumbers.size()) << "places that log tell themselves apart";
    std::string log;
    for (const std::string& line : platform.takeLog())
        log += line + "\n";
    std::ifstream file(TESTS "/trace.log");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), log);
    ASSERT_EQ(1, initialize(0));
}

TEST_F(ReportTest, KeyedReadsBeforeTheFirstReport) {
    const struct {
        Answer answer;
        int status, value;
    } cases[] = {{" -7 9\n8\n", 0, -7}, {"010", 0, 10},
                 {"\n3\n", 1, 5},       {notStarted, 1, 5},
                 {"2147483648", 1, 5},  {"2147483647", 0, INT_MAX},
                 {"-2147483649", 1, 5}, {"-2147483648", 0, INT_MIN}};
    {
        SnmpConfigHandler handler;
        EXPECT_THROW(handler.getSpeedInfo(nullptr), std::logic_error);
        handler.initialize();
        handler.m_bVerbose = true;
        int value = 5;
        EXPECT_EQ(0, handler.getIntegerValue(value, "ATM", "Vpi", "Id", "3"));
        EXPECT_RUN();
        for (const auto& c : cases) {
            platform.script({c.answer});
            value = 5;
            EXPECT_EQ(c.status, handler.getIntegerValue(value, "Atm", "Vpi", "Id", "3"));
            EXPECT_EQ(c.value, value) << c.answer.text;
            EXPECT_RUN(quorlet(" selectkey Atm Id 3 Vpi ; "));
        }
        EXPECT_TRUE(handler.m_atmTable.m_bVerbose && Wrapper::getInstance()->m_bVerbose);
    }
    EXPECT_LOG("error:Wrapper: popen error", "tracedo:SnmpCfgHdr: ~ConfigDBHandler: destruction",
               "tracedo:Table: ~Table: destruction");
}

} // namespace
