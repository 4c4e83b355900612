// The output of the DSL status tool.

#include "harness.h"

#include "readers/SpeedInfo.h"

void fuzz::test(std::string_view text) {
    kavo::snmp::SpeedInfo reader;
    reader.initialize(text.size() % 2 == 1);
    answers = {std::string(text)};
    start(1);
    speedInfo_s info = {1, 2, 3, 4};
    constexpr speedInfo_s none = {};
    expect(reader.getSpeedInfo(&info) == (text != "!"), "the result says if the tool started");
    expect(text.find("Line Rate Information") != text.npos || !memcmp(&info, &none, sizeof info),
           "rates stand in their group");

    // Every line as one of the group, under both headings.
    for (std::size_t end; !text.empty(); text.remove_prefix(end)) {
        end = text.find('\n') == text.npos ? text.size() : text.find('\n') + 1;
        speedInfo_s down = {};
        speedInfo_s up = {};
        reader.parseGroupLine(text.substr(0, end), 1, true, &down);
        reader.parseGroupLine(text.substr(0, end), 1, false, &up);
        const speedInfo_s turned = {down.dslActualDataRateUp, down.dslActualDataRateDown,
                                    down.dslAttainableDataRateUp, down.dslAttainableDataRateDown};
        expect(!memcmp(&up, &turned, sizeof up), "the heading alone tells the columns");
    }
}
