#pragma once

#include "agent/change/JournalText.h"
#include "agent/change/Restore.h"
#include "agent/change/Stage.h"

#include <optional>
#include <string>

/// Runs a client's command, without what stands around it, on a database in memory.
inline std::string run(agent::Image& database, const std::string& command,
                       agent::Record* record = nullptr) {
    return *agent::Stage(database, record).answer(" quorlet \" " + command + " ;\" ");
}

/// A configuration database in memory and the journal of a change in it, for tests of how changes
/// are taken back.
class RowsDatabase : public agent::RestoreDevice {
public:
    agent::Image rows;
    std::string journal;
    int until = -1;         ///< so many things are done before the process ends; -1 for no end
    bool endsAfter = false; ///< whether the last command is run, unanswered

    bool read(agent::Image& image, agent::Table table) override {
        if (!goesOn())
            return false;
        image[table] = rows[table];
        return true;
    }
    bool readRow(agent::Image& image, agent::Table table, int) override {
        return read(image, table);
    }
    bool readIfResized(agent::Image& image, agent::Table table) override {
        return read(image, table);
    }
    std::optional<std::string> run(const std::string& line) override {
        const bool ends = !goesOn();
        if (ends && !endsAfter)
            return std::nullopt;
        const auto said = agent::Stage(rows).answer(line);
        return ends ? std::nullopt : said;
    }
    bool store(const agent::Record& record) override {
        if (!goesOn())
            return false;
        journal = agent::toText({false, record});
        return true;
    }

private:
    bool goesOn() {
        if (until > 0)
            --until;
        return until != 0;
    }
};
