// The journal of a change, as the agent finds it when it starts.

#include "harness.h"

#include "agent/change/Comparison.h"
#include "agent/change/JournalText.h"
#include "agent/change/Restore.h"

void fuzz::test(std::string_view text) {
    if (const auto entry = agent::toEntry(text))
        expect(agent::toEntry(agent::toText(*entry)).has_value(), "written out, it reads again");
    // Behind the checksum, which inputs made by chance seldom have.
    auto record = agent::toRecord(text);
    if (!record)
        record = agent::toRecordOfVersion1(text, false);
    if (!record)
        return;
    const std::string lines = agent::toLines(*record);
    const auto again = agent::toRecord(lines);
    expect(again && agent::toLines(*again) == lines, "its record too");
    agent::Record known = *record;
    const agent::Image nothing;
    const agent::Comparison comparison(known, nothing, true);
    for (const agent::Step& step : comparison.steps())
        expect(!agent::canBeRestored(*record) || isOneCommand(step.command.line().c_str()),
               "it leads to commands");
}
