// The journal of a change, as the agent finds it when it starts.

#include "harness.h"

#include "agent/JournalText.h"
#include "agent/Restore.h"

void fuzz::test(std::string_view text) {
    if (const auto entry = agent::toEntry(text))
        expect(agent::toText(*entry) == text, "written out, it reads the same");
    // Behind the checksum, which inputs made by chance seldom have.
    const auto record = agent::toRecord(text);
    if (!record)
        return;
    const std::string lines = agent::toLines(*record);
    const auto again = agent::toRecord(lines);
    expect(again && agent::toLines(*again) == lines, "its record too");
    agent::canBeRestored(*record);
    const agent::Restoring next = agent::restoring(*record, {}, 0);
    for (const std::string& command : next.commands)
        expect(!agent::canBeRestored(*record) || isOneCommand(command.c_str()),
               "it leads to commands");
}
