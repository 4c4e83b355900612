// How the agent takes changes back, on a database in memory: many changes made up at random, each
// broken off somewhere, beside what others do.

#include "agent/JournalText.h"
#include "agent/Restore.h"
#include "agent/Stage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <set>

using namespace agent;

namespace {

std::string run(Image& database, const std::string& command, Record* record = nullptr) {
    return *Stage(database, record).answer(" quorlet \" " + command + " ;\" ");
}

/// Rows without their Ids, which come back as others; with a bridge stands what refers to it.
std::multiset<std::string> contents(const Image& database) {
    std::multiset<std::string> all;
    std::map<std::string, std::multiset<std::string>> bridges;
    for (const Table table : kAllTables) {
        for (Row row : database[table]) {
            const std::size_t column = shapeOf(table).bridgeId;
            const std::string bridge = row.columns[column];
            row.columns[0] = shapeOf(table).name;
            row.columns[column] = shapeOf(table).name;
            if (table == Table::bridge || column != 0)
                bridges[bridge].insert(row.text());
            else
                all.insert(row.text());
        }
    }
    for (const auto& [id, rows] : bridges)
        all.insert(std::accumulate(rows.begin(), rows.end(), std::string("bridge ")));
    return all;
}

class RowsTest : public testing::Test {
protected:
    int pick(int below) { return static_cast<int>(random() % static_cast<unsigned>(below)); }
    std::string number(int below) { return std::to_string(pick(below)); }

    /// The Id of a bridge; without one, an Id that no bridge ever gets.
    std::string bridge(const Image& database) {
        const Rows& rows = database[Table::bridge];
        return rows.empty() ? "99" : rows[random() % rows.size()].columns[0];
    }

    std::string insert(const Image& database, const std::string& name) {
        switch (pick(m_tables)) {
        case 0:
            return "insertkey Bridge Name text:br" + name + " Stp integer:0";
        case 1:
            return "insertkey BridgeInterface BridgeId integer:" + bridge(database) +
                   " Interface text:" + name;
        case 2:
            return "insertkey BridgeFilter BridgeId integer:" + bridge(database) +
                   " FilterRule text:" + name;
        case 3:
            return "insertkey StatusNetifConfig Name text:" + name;
        default:
            return "insertkey NetworkSetupNode Type text:VLAN InterfaceName text:" + name;
        }
    }

    std::string change(const Image& database) {
        switch (pick(2 + 2 * m_tables)) {
        case 0:
            return "deletekey Bridge Id " + bridge(database);
        case 1:
            return "updatekey Bridge Id " + bridge(database) + " Name text:brif" + number(m_names);
        case 3:
            return "updatekey VLAN Id " + number(4) + " Enable integer:" + number(2);
        case 4:
            return "deletekey BridgeInterface BridgeId " + bridge(database);
        case 5:
            return "updatekey BridgeInterface Id " + number(9) + " Interface text:if" +
                   number(m_names);
        case 6:
            return "updatekey BridgeInterface Id " + number(9) +
                   " BridgeId integer:" + bridge(database);
        case 8:
            return "deletekey StatusNetifConfig Name if" + number(m_names);
        case 10:
            return "deletekey NetworkSetupNode InterfaceName if" + number(m_names);
        default:
            return insert(database, "if" + number(m_names));
        }
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
            run(database, insert(database, "if" + number(m_names)));

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
    const struct {
        const char* change;
        const char* other;
        const char* left; ///< command that tells, and its answer
        const char* answer;
        int leftAlone;
    } cases[] = {
        {"updatekey VLAN Id 1 Enable integer:1", "updatekey VLAN Id 1 ParentIf text:wan9",
         "selectkey VLAN Id 1 Enable ParentIf", "1|wan9\n", 1},
        {"insertkey StatusNetifConfig Name text:new", "deletekey StatusNetifConfig Name new",
         "selectkey StatusNetifConfig Name new Id", "Unknown row\n", 0},
        {"insertkey NetworkSetupNode InterfaceName text:new Enable integer:1",
         "updatekey NetworkSetupNode InterfaceName new Enable integer:0",
         "selectkey NetworkSetupNode InterfaceName new Enable", "0\n", 1},
        // Another row with the Id of one that the change removed.
        {"deletekey Bridge Name br1", "insertkey Bridge Name text:other",
         "selectrow Bridge 1 Name Stp", "br1|0\n", 0},
        {"deletekey Bridge Name br1", "insertkey Bridge Name text:br1 Stp integer:1",
         "selectrow Bridge 0 Name Stp", "br1|1\n", 1},
    };
    for (const auto& [change, other, left, answer, leftAlone] : cases) {
        Image database;
        database[Table::vlan].push_back({{"1", "0", "eth0.1", "wan1"}});
        run(database, "insertkey Bridge Name text:br1 Stp integer:0");
        Record record;
        run(database, change, &record);
        run(database, other);
        EXPECT_EQ(leftAlone, takeBack(record, database)) << change;
        EXPECT_EQ(answer, run(database, left)) << change;
    }
}

TEST_F(RowsTest, AreNotTouchedByADamagedJournal) {
    Image database;
    Record record;
    run(database, "insertkey Bridge Name text:br1 Stp integer:0", &record);
    run(database, "deletekey Bridge Id 1", &record);
    const std::string whole = toText({true, record});
    ASSERT_TRUE(toEntry(whole));
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(toEntry(whole.substr(0, size))) << size;
    for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
        std::string flipped = whole;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        EXPECT_FALSE(toEntry(flipped)) << bit;
    }
    EXPECT_FALSE(toEntry(whole + "\n"));
}

} // namespace
