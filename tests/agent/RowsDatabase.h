#pragma once

#include "agent/change/JournalText.h"
#include "agent/change/Restore.h"
#include "agent/change/Stage.h"

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <utility>

/// Runs a client's command, without what stands around it, on a database in memory.
inline std::string run(agent::Image& database, const std::string& command,
                       agent::Record* record = nullptr) {
    return *agent::Stage(database, record).answer(" quorlet \" " + command + " ;\" ");
}

/// A configuration database in memory and the journal of a change in it, for tests of how changes
/// are taken back.
class RowsDatabase : public agent::RestoreDevice {
public:
    enum class Who { change, others, takingBack };

    agent::Image rows;
    bool lowestFree = false; ///< new rows get the lowest free Id; else the highest one plus 1
    std::string journal;
    int until = -1;         ///< so many things are done before the process ends; -1 for no end
    bool endsAfter = false; ///< whether the last command is run, unanswered
    int runs = 0;
    std::function<void()> others = [] {}; ///< what they do before each command
    std::function<void()> stored = [] {};
    std::function<void(Who, const std::string&)> see = [](Who, const std::string&) {};

    /// Runs a command as the client does.
    std::string client(Who who, const std::string& line) {
        ++runs;
        const std::string said = agent::Stage(rows).answer(line).value_or("");
        const auto command = agent::Command::parse(line);
        if (!command || command->verb != agent::Command::Verb::insert)
            return seen(who, line, said);
        agent::Rows& table = rows[command->table];
        agent::Row row = table.back();
        table.pop_back();
        for (int id = 1; lowestFree; ++id)
            if (rows.find(command->table, id) == table.end()) {
                row.columns[0] = std::to_string(id);
                break;
            }
        const int id = row.id();
        table.insert(std::find_if(table.begin(), table.end(),
                                  [id](const agent::Row& each) { return each.id() > id; }),
                     std::move(row));
        return seen(who, line, std::to_string(id) + "\n");
    }

    bool read(agent::Image& image, agent::Table table) override {
        if (!goesOn(true))
            return false;
        runs += static_cast<int>(rows[table].size()) + 1;
        image[table] = rows[table];
        return true;
    }
    bool readRow(agent::Image& image, agent::Table table, int id) override {
        if (!goesOn(true))
            return false;
        const auto known = image.find(table, id);
        const auto place = static_cast<std::size_t>(known - image[table].begin());
        if (known == image[table].end() || place >= rows[table].size() ||
            rows[table][place].id() != id)
            return m_guarded = read(image, table);
        ++runs;
        *known = rows[table][place];
        m_guarded = true;
        return true;
    }
    bool readIfResized(agent::Image& image, agent::Table table) override {
        ++runs;
        return rows[table].size() == image[table].size() ? goesOn(true) : read(image, table);
    }
    std::optional<std::string> run(const std::string& line) override {
        // Nobody can keep others from writing between the read of a row and its write.
        const bool insert = line.find("insertkey") != line.npos;
        const bool ends = !goesOn(insert || !m_guarded);
        m_guarded = false;
        if (ends && !endsAfter)
            return std::nullopt;
        std::string said = client(Who::takingBack, line);
        return ends ? std::nullopt : std::optional(said);
    }
    bool store(const agent::Record& record) override {
        if (!goesOn(false))
            return false;
        journal = agent::toText({false, record});
        stored();
        return true;
    }

private:
    bool goesOn(bool othersToo) {
        if (othersToo && until != 0)
            others();
        if (until > 0)
            --until;
        return until != 0;
    }
    std::string seen(Who who, const std::string& line, std::string said) {
        see(who, line);
        return said;
    }

    bool m_guarded = false;
};
