// How the agent takes changes back, on a database in memory: many changes made up at random, each
// broken off somewhere, beside what others do.

#include "agent/JournalText.h"
#include "agent/Restore.h"
#include "agent/Stage.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <utility>

using namespace agent;

namespace {

std::string run(Image& database, const std::string& command, Record* record = nullptr) {
    return *Stage(database, record).answer(" quorlet \" " + command + " ;\" ");
}

/// Rows without their Ids, which come back as others; with a bridge stands what refers to it.
std::multiset<std::multiset<std::string>> contents(const Image& database) {
    std::map<std::string, std::multiset<std::string>> bridges; // "" is none
    for (const Table table : kAllTables) {
        const std::size_t column = shapeOf(table).bridgeId;
        for (Row row : database[table]) {
            std::string bridge = std::exchange(row.columns[column], "");
            if (table != Table::bridge && column == 0)
                bridge = "";
            row.columns[0] = shapeOf(table).name;
            bridges[bridge].insert(row.text());
        }
    }
    std::multiset<std::multiset<std::string>> all;
    for (const auto& [id, rows] : bridges)
        all.insert(rows);
    return all;
}

/// Commands with places for what is made up: %b is a bridge's Id, %n a name, and a digit stands for
/// a number below it. Tries with few tables take them from the front.
const char* const kInserts[] = {
    "insertkey Bridge Name text:br%n Stp integer:0",
    "insertkey BridgeInterface BridgeId integer:%b Interface text:%n",
    "insertkey BridgeFilter BridgeId integer:%b FilterRule text:%n",
    "insertkey StatusNetifConfig Name text:%n",
    "insertkey NetworkSetupNode Type text:VLAN InterfaceName text:%n",
};
const char* const kChanges[] = {
    "deletekey Bridge Id %b",
    "updatekey Bridge Id %b Name text:br%n",
    "updatekey VLAN Id %4 Enable integer:%2",
    "deletekey BridgeInterface BridgeId %b",
    "updatekey BridgeInterface Id %9 Interface text:%n",
    "updatekey BridgeInterface Id %9 BridgeId integer:%b",
    "deletekey StatusNetifConfig Name %n",
    "deletekey NetworkSetupNode InterfaceName %n",
};

class RowsTest : public testing::Test {
protected:
    int pick(int below) { return static_cast<int>(random() % static_cast<unsigned>(below)); }
    std::string name() { return "if" + std::to_string(pick(m_names)); }

    std::string filled(std::string command, const Image& database, const std::string& name) {
        const Rows& bridges = database[Table::bridge];
        for (std::size_t at; (at = command.find('%')) != command.npos;) {
            const char what = command[at + 1];
            std::string text = what == 'n' ? name : "99"; // no bridge ever gets this Id
            if (what == 'b' && !bridges.empty())
                text = bridges[random() % bridges.size()].columns[0];
            else if (what <= '9')
                text = std::to_string(pick(what - '0'));
            command.replace(at, 2, text);
        }
        return command;
    }

    std::string insert(const Image& database, const std::string& name) {
        return filled(kInserts[pick(m_tables)], database, name);
    }

    std::string change(const Image& database) {
        if (pick(3) == 0)
            return insert(database, name());
        return filled(kChanges[pick(3 + m_tables)], database, name());
    }

    /// @return how many rows were left alone; -1 when it came to no end
    int takeBack(const Record& record, Image& database) {
        for (int round = 0; round < 50; ++round) {
            const Restoring next = restoring(record, database);
            if (next.commands.empty())
                return next.leftAlone;
            // Broken off anywhere, and begun again.
            const auto until =
                next.commands.begin() + 1 + pick(static_cast<int>(next.commands.size()));
            for (auto command = next.commands.begin(); command != until; ++command)
                Stage(database).answer(*command);
        }
        return -1;
    }

    std::mt19937 random{1};
    int m_names = 0; ///< few make rows that look alike, which come and go under the same Ids
    int m_tables = 0;
};

TEST_F(RowsTest, ComeBackFromWhereverAChangeWasBrokenOff) {
    constexpr int kTries = 20000;
    for (int i = 0; i < kTries && !HasFailure(); ++i) {
        m_names = 1 + pick(4);
        m_tables = 1 + pick(1 + pick(5));
        Image database;
        for (int id = 1; id < 4; ++id)
            database[Table::vlan].push_back({{std::to_string(id), "0", "eth0.1", "wan1"}});
        for (int n = pick(12); n > 0; --n)
            run(database, insert(database, name()));

        Record record;
        Image rehearsal = database;
        std::vector<std::string> commands;
        for (int n = 1 + pick(10); n > 0; --n) {
            commands.push_back(change(rehearsal));
            run(rehearsal, commands.back(), &record);
        }
        Image expected = database;
        const std::size_t done = random() % (commands.size() + 1);
        for (std::size_t n = 0; n < done; ++n)
            run(database, commands[n]);
        for (int n = pick(3); n > 0; --n) { // others add rows of their own
            const std::string other = insert(expected, "other" + std::to_string(n));
            const bool refers = other.find("BridgeId") != other.npos;
            if (!refers && run(database, other) != "")
                run(expected, other);
        }
        const auto entry = toEntry(toText({pick(2) == 0, record}));
        ASSERT_TRUE(entry);
        std::string story = "try " + std::to_string(i) + ", " + std::to_string(done) + " of:\n";
        for (const std::string& command : commands)
            story += command + "\n";
        SCOPED_TRACE(story + toLines(record));
        EXPECT_EQ(0, takeBack(entry->record, database));
        EXPECT_EQ(contents(expected), contents(database));
    }
}

TEST_F(RowsTest, AreLeftAloneOnceOthersHaveChangedThem) {
    // A change, what others do, a command that tells, its answer, and how many rows are left alone.
    const char* const cases[][5] = {
        {"updatekey VLAN Id 1 Enable integer:1", "updatekey VLAN Id 1 ParentIf text:wan9",
         "selectkey VLAN Id 1 Enable ParentIf", "1|wan9\n", "1"},
        {"insertkey StatusNetifConfig Name text:new", "deletekey StatusNetifConfig Name new",
         "selectkey StatusNetifConfig Name new Id", "Unknown row\n", "0"},
        {"insertkey NetworkSetupNode InterfaceName text:new Enable integer:1",
         "updatekey NetworkSetupNode InterfaceName new Enable integer:0",
         "selectkey NetworkSetupNode InterfaceName new Enable", "0\n", "1"},
        // Another row with the Id of one that the change removed.
        {"deletekey Bridge Name br1", "insertkey Bridge Name text:other",
         "selectrow Bridge 1 Name Stp", "br1|0\n", "0"},
        {"deletekey Bridge Name br1", "insertkey Bridge Name text:br1 Stp integer:1",
         "selectrow Bridge 0 Name Stp", "br1|1\n", "1"},
    };
    for (const auto& [change, other, left, answer, leftAlone] : cases) {
        Image database;
        database[Table::vlan].push_back({{"1", "0", "eth0.1", "wan1"}});
        run(database, "insertkey Bridge Name text:br1 Stp integer:0");
        Record record;
        run(database, change, &record);
        run(database, other);
        EXPECT_EQ(leftAlone, std::to_string(takeBack(record, database))) << change;
        EXPECT_EQ(answer, run(database, left)) << change;
    }
}

} // namespace
