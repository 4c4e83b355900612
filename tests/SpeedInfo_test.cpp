#include "tests/Platform.h"

#include "readers/SpeedInfo.h"

#include <array>

using kavo::snmp::SpeedInfo;

namespace {

using SpeedInfoTest = PlatformTest;
using Rates = std::array<unsigned, 4>; // actual down, actual up, attainable down, attainable up

Rates ratesOf(const speedInfo_s& info) {
    return {info.dslActualDataRateDown, info.dslActualDataRateUp, info.dslAttainableDataRateDown,
            info.dslAttainableDataRateUp};
}

const std::string heading = "Line Rate Information", down = heading + "   Down      Up\n";
const std::string rates = "Actual Data Rate:       5696      1024\n"
                          "Attainable Data Rate:   6144      1280\n";

std::string missing(const char* what, const std::string& line) {
    return std::string("warning:SpeedInfo: readDSLInfo: ") + what + " not found in line: " + line;
}

TEST_F(SpeedInfoTest, TakesTheRatesFromTheGroup) {
    const Rates downFirst = {5696, 1024, 6144, 1280}, upFirst = {1024, 5696, 1280, 6144};
    const Rates none = {0, 0, 0, 0};
    const std::string fgetsError = "error:Wrapper: fgets error";
    const struct {
        Answer output;
        Rates expected;
        Lines log;
    } cases[] = {
        {"State: UP\n\n" + down + rates + "end\n", downFirst, {}},
        {heading + "   Up      Down\n" + rates, upFirst, {}},
        {down + "Attainable: 3 4\nActual: 1 2\n", {1, 2, 3, 4}, {}},
        {"", none, {}},
        {"line rate information   Down\n" + rates, none, {}},
        {rates + down, none, {}},
        {down + "Actual: 1 2", {1, 2, 0, 0}, {}},
        {down + rates + heading + "\nActual: 7 8\nx: 1 1\n", {8, 7, 6144, 1280}, {}},
        // the token at offset 22 of the heading's line
        {heading + " xDownstream\n" + rates, downFirst, {}},
        {heading + " down Down\n" + rates, upFirst, {}},
        {heading + " \tDown\n" + rates, downFirst, {}},
        {"  " + heading + " Down Up\n" + rates, upFirst, {}},
        {std::string(30, '.') + "Down Up\n" + heading + "\n" + rates, upFirst, {}},
        {std::string(30, '.') + "Down Up\n" + heading, none, {}},
        {heading + "     \n" + rates, upFirst, {}},
        // names and numbers
        {down + "Actual: 0x1000 010\n", {4096, 8, 0, 0}, {}},
        {down + "Actual: n/a 9kbit/s\n", {0, 9, 0, 0}, {}},
        {down + "Actual: 4294967295 1\n", {4294967295U, 1, 0, 0}, {}},
        {down + "xAttainableActual: 1 2\nAttainable: 3 4\n", {1, 2, 3, 4}, {}},
        {down + "actual: 1 2\nAttainable:3 4\n", {0, 0, 3, 4}, {}},
        {down + "::Actual:1 2\n", {1, 2, 0, 0}, {}},
        {down + "Actual: :5 6\n", {0, 6, 0, 0}, {}},
        // what is missing counts as 0
        {down + "Actual: 5\n", {5, 0, 0, 0}, {missing("UP value", "Actual: 5\n")}},
        {heading + "\nActual:\nAttainable: 3 4\n",
         {0, 0, 4, 3},
         {missing("UP value", "Actual:\n")}},
        {down + "Actual 5 6\nAttainable: 3 4\n",
         {0, 0, 3, 4},
         {missing("DOWN value", "Actual 5 6\n")}},
        {down + "Actual:  ", none, {missing("DOWN value", "Actual:  ")}},
        {down + ":::\n", none, {missing("DOWN value", ":::\n")}},
        {down + ":::", none, {missing("token ':'", ":::")}},
        {down + "\n" + rates, {5696, 1024, 0, 0}, {missing("DOWN value", "\n")}},
        {down + rates + down + "Actual:1\n",
         {1, 0, 6144, 1280},
         {missing("UP value", "Actual:1\n")}},
        // each piece of a long line is a line
        {std::string(255, 'x') + down + rates, downFirst, {}},
        {down + "x: 1 2" + std::string(249, ' ') + rates, {5696, 1024, 0, 0}, {}},
        {Answer(down + rates, Answer::Fault::read), downFirst, {fgetsError}},
        {Answer(down + "Actual: 1 2\n", Answer::Fault::read),
         {1, 2, 0, 0},
         {fgetsError, fgetsError}},
        {Answer(down + rates, Answer::Fault::close), downFirst, {"error:Wrapper: pclose error"}},
    };
    SpeedInfo reader;
    reader.initialize(false);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.output.text);
        platform.script({c.output});
        speedInfo_s info = {1, 2, 3, 4};
        EXPECT_TRUE(reader.getSpeedInfo(&info));
        EXPECT_EQ(c.expected, ratesOf(info));
        EXPECT_EQ(c.log, platform.takeLog());
        EXPECT_EQ(Lines{"vellstat info"}, platform.takeCommands());
        EXPECT_EQ(0, platform.openStreams);
    }
}

TEST_F(SpeedInfoTest, AToolThatCannotBeStarted) {
    SpeedInfo reader;
    reader.initialize(false);
    platform.script({notStarted, ""});
    speedInfo_s info = {1, 2, 3, 4};
    EXPECT_FALSE(reader.readDSLInfo(&info));
    EXPECT_TRUE(reader.readDSLInfo(&info));
    EXPECT_EQ((Rates{1, 2, 3, 4}), ratesOf(info));
    EXPECT_EQ((Lines{"error:Wrapper: popen error",
                     "error:SpeedInfo: read: could not popen vellstat info"}),
              platform.takeLog());
    platform.script({notStarted});
    EXPECT_FALSE(reader.getSpeedInfo(&info));
    EXPECT_EQ((Rates{}), ratesOf(info));
}

TEST_F(SpeedInfoTest, TracesEachStep) {
    {
        SpeedInfo reader;
        reader.initialize(true);
        platform.takeLog();
        platform.script({"State: UP\n" + down + "Actual: 0x10 1\nBase: 7 8\n"});
        speedInfo_s info;
        EXPECT_TRUE(reader.getSpeedInfo(&info));
    }
    const std::string trace = "tracedo:SpeedInfo: ", debug = "debug:SpeedInfo: readDSLInfo: ";
    const Lines expected = {
        trace + "getSpeedInfo: entering",
        trace + "readDSLInfo: entering",
        debug + "trying to popen >vellstat info<",
        debug + "processing line 1: State: UP\n",
        debug + "processing line 2: " + down,
        debug + "line 2: downFirst = 1",
        debug + "processing group line 3: Actual: 0x10 1\n",
        debug + "line 3: name = Actual, ui1 = 16, ui2 = 1",
        debug + "processing group line 4: Base: 7 8\n",
        debug + "line 4: name = Base, ui1 = 7, ui2 = 8",
        debug + "Group: >Line Rate Information<, unhandled DSL line: Base",
        trace + "getSpeedInfo: exiting with: SpeedInfo[dslActualDataRateDown=16,"
                "dslActualDataRateUp=1,dslAttainableDataRateDown=0,dslAttainableDataRateUp=0]",
        trace + "~SpeedInfo: destruction",
    };
    EXPECT_EQ(expected, platform.takeLog());
}

} // namespace
