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

TEST_F(SpeedInfoTest, TakesTheRatesFromTheGroup) {
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
        {heading + "   Up      Down\n" + rates, upFirst},
        {down + "Attainable: 3 4\nxAttainableActual: 1 2", {1, 2, 3, 4}},
        {"line rate information   Down\n" + rates, {}},
        {down + rates + heading + "\nActual: 7 8\nx: 1 1\n", {8, 7, 6144, 1280}},
        // the token at offset 22 of the heading's line
        {heading + " xDownstream\n" + rates, downFirst},
        {"  " + heading + " Down Up\n" + rates, upFirst},
        {dots + heading + "\n" + rates, upFirst},
        {dots + heading, {}},
        // names and numbers
        {down + "Actual: 0x1000 010\n", {4096, 8, 0, 0}},
        {down + "Actual: n/a 9kbit/s\n", {0, 9, 0, 0}},
        {down + "Actual: 4294967295 1\n", {4294967295U, 1, 0, 0}},
        {down + "actual: 1 2\nAttainable:3 4\n", {0, 0, 3, 4}},
        {down + "Actual: :5 6\n", {0, 6, 0, 0}},
        // what is missing counts as 0
        {down + "Actual: 5\n", {5, 0, 0, 0}, noUp, "Actual: 5\n"},
        {heading + "\nActual:\nAttainable: 3 4\n", {0, 0, 4, 3}, noUp, "Actual:\n"},
        {down + ":::\n", {}, noDown, ":::\n"},
        {down + ":::", {}, noName, ":::"},
        {down + "\n" + rates, {5696, 1024, 0, 0}, noDown, "\n"},
        {down + rates + down + "Actual:1\n", {1, 0, 6144, 1280}, noUp, "Actual:1\n"},
        // each piece of a long line is a line
        {std::string(255, 'x') + down + rates, downFirst},
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
    platform.script({Answer(down + rates, Answer::Fault::close), notStarted, "", notStarted});
    EXPECT_TRUE(reader.getSpeedInfo(&info));
    EXPECT_LOG("error:Wrapper: pclose error");
    EXPECT_FALSE(reader.readDSLInfo(&info));
    EXPECT_TRUE(reader.readDSLInfo(&info));
    EXPECT_EQ(downFirst, ratesOf(info)) << "left as it was";
    EXPECT_LOG("error:Wrapper: popen error",
               "error:SpeedInfo: read: could not popen vellstat info");
    EXPECT_FALSE(reader.getSpeedInfo(&info));
    EXPECT_EQ((Rates{}), ratesOf(info));
}

} // namespace
