// How the agent takes changes back, on a database in memory: many changes made up at random, each
// broken off somewhere, beside what others do.

#include "RowsDatabase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <utility>

using namespace agent;

namespace {

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

    /// Rehearses commands, and performs them until a process ends or one has failed.
    /// @return what is known of it afterwards, by the process or by the next one
    Record perform(RowsDatabase& database, const std::vector<std::string>& commands) {
        Record planned;
        Image image = database.rows;
        Stage rehearsal(image, &planned);
        for (const std::string& command : commands)
            rehearsal.answer(" quorlet \" " + command + " ;\" ");
        database.journal = toText({false, planned});
        Record done;
        image = database.rows;
        Stage stage(image, &done);
        const std::size_t end = random() % (commands.size() + 1);
        const int fault = pick(4);
        std::size_t run = 0;
        const auto client = [&](const std::string& line) -> std::optional<std::string> {
            const bool last = run++ == end;
            if (run > end + 1 || (last && fault < 2))
                return std::nullopt;
            const std::string said = database.client(RowsDatabase::Who::change, line);
            return last ? std::nullopt : std::optional(said);
        };
        stage.perform(rehearsal.written(), client, [&](const Rehearsed& row, int id) {
            planned.renumber(row.command.table, row.trail, id);
            database.journal = toText({false, planned});
            return true;
        });
        for (const std::string& command : commands)
            stage.answer(" quorlet \" " + command + " ;\" ");
        return fault % 2 == 0 ? done : toEntry(database.journal)->record;
    }

    /// Takes a change back, broken off anywhere and gone on with by the same process or the next.
    /// @return how many rows were left alone; -1 when it came to no end
    int restore(RowsDatabase& database, Record record) {
        constexpr int kMostTries = 40;
        constexpr int kBrokenOff = 20;
        Image image;
        for (int i = 0; i < kMostTries; ++i) {
            database.until = i < kBrokenOff ? 1 + pick(40) : -1;
            database.endsAfter = pick(2) == 0;
            const auto leftAlone = takeBack(record, image, database);
            if (leftAlone)
                return *leftAlone;
            if (pick(2) == 0)
                continue;
            record = toEntry(database.journal)->record;
            image = {};
        }
        return -1;
    }

    std::mt19937 random{1};
    int m_names = 0; ///< few make rows that look alike, which come and go under the same Ids
    int m_tables = 0;
};

TEST_F(RowsTest, ComeBackFromWhereverAChangeWasBrokenOff) {
    constexpr int kTries = 6000;
    for (int i = 0; i < kTries && !HasFailure(); ++i) {
        m_names = 1 + pick(4);
        m_tables = 1 + pick(1 + pick(5));
        RowsDatabase site;
        Image& database = site.rows;
        site.lowestFree = pick(2) == 0;
        for (int id = 1; id < 4; ++id)
            database[Table::vlan].push_back({{std::to_string(id), "0", "eth0.1", "wan1"}});
        for (int n = pick(12); n > 0; --n)
            run(database, insert(database, name()));
        std::vector<std::string> commands;
        Image rehearsal = database;
        for (int n = 1 + pick(10); n > 0; --n) {
            commands.push_back(change(rehearsal));
            run(rehearsal, commands.back());
        }
        Image expected = database;
        const Record record = perform(site, commands);
        for (int n = pick(3); n > 0; --n) { // others add rows of their own
            const std::string other = insert(expected, "other" + std::to_string(n));
            const bool refers = other.find("BridgeId") != other.npos;
            if (!refers && run(database, other) != "")
                run(expected, other);
        }
        std::string story = "try " + std::to_string(i) + "\n";
        for (const std::string& command : commands)
            story += command + "\n";
        SCOPED_TRACE(story + toLines(record));
        const int leftAlone = restore(site, record);
        EXPECT_EQ(0, site.lowestFree ? std::min(leftAlone, 0) : leftAlone);
        EXPECT_EQ(contents(expected), contents(database));
    }
}

/// Bridges with two members each, as the library makes and removes them: the WAN member is the row
/// behind the LAN member.
class NeighboursTest : public RowsTest {
protected:
    /// The commands that switch a VLAN on, in a bridge with the first free name, or off.
    std::vector<std::string> toggle(const Image& database, int vlan) {
        const std::string lan = "eth0." + std::to_string(100 + vlan);
        for (const Row& row : database[Table::bridgeInterface])
            if (row.columns[2] == lan)
                return {"deletekey BridgeInterface BridgeId " + row.columns[1],
                        "deletekey Bridge Id " + row.columns[1]};
        Image rehearsal = database;
        std::string name;
        for (int slot = 1;
             name.empty() || run(rehearsal, "selectkey Bridge Name " + name) != "Unknown row\n";
             ++slot)
            name = "br" + std::to_string(slot);
        std::string bridge = run(rehearsal, "insertkey Bridge Name text:" + name);
        bridge.pop_back();
        const std::string insert = "insertkey BridgeInterface BridgeId integer:" + bridge;
        run(rehearsal, insert + " Interface text:" + lan);
        std::string wan = run(rehearsal, insert + " Interface text:");
        wan.pop_back();
        return {"insertkey Bridge Name text:" + name, insert + " Interface text:" + lan,
                insert + " Interface text:",
                "updatekey BridgeInterface Id " + wan + " Interface text:wan" +
                    std::to_string(1 + pick(2))};
    }

    /// Bridges whose members are not LAN and WAN behind one another.
    static int apart(const Image& database) {
        int wrong = 0;
        for (const Row& row : database[Table::bridgeInterface]) {
            const auto next = database.find(Table::bridgeInterface, row.id() + 1);
            wrong +=
                row.columns[2].compare(0, 5, "eth0.") == 0 &&
                (next == database[Table::bridgeInterface].end() ||
                 next->columns[1] != row.columns[1] || next->columns[2].compare(0, 3, "wan") != 0);
        }
        return wrong;
    }
};

TEST_F(NeighboursTest, ComeBackBehindOneAnother) {
    constexpr int kTries = 2500;
    for (int i = 0; i < kTries && !HasFailure(); ++i) {
        RowsDatabase site;
        Image& database = site.rows;
        for (int n = pick(6); n > 0; --n)
            for (const std::string& command : toggle(database, 1 + pick(4)))
                run(database, command);
        Image expected = database;
        Image rehearsal = database;
        std::vector<std::string> commands;
        for (int n = 1 + pick(5); n > 0; --n)
            for (const std::string& command : toggle(rehearsal, 1 + pick(4))) {
                run(rehearsal, command);
                commands.push_back(command);
            }
        const Record record = perform(site, commands);
        int others = pick(4);
        site.others = [&] {
            if (others == 0 || pick(9) != 0)
                return;
            const std::string row =
                "insertkey BridgeInterface BridgeId integer:99 Interface text:o" +
                std::to_string(others--);
            run(database, row);
            run(expected, row);
        };
        SCOPED_TRACE("try " + std::to_string(i) + "\n" + toLines(record));
        EXPECT_EQ(0, restore(site, record));
        EXPECT_EQ(contents(expected), contents(database));
        EXPECT_EQ(apart(expected), apart(database));
    }
}

TEST_F(NeighboursTest, AreToldOfWhenOthersAlwaysComeBetween) {
    RowsDatabase database;
    for (const std::string& command : toggle(database.rows, 1))
        run(database.rows, command);
    Record record;
    for (const std::string& command : toggle(database.rows, 1))
        run(database.rows, command, &record);
    record.settle();
    int n = 0;
    database.others = [&] {
        run(database.rows,
            "insertkey BridgeInterface BridgeId integer:99 Interface text:o" + std::to_string(++n));
    };
    Image image;
    EXPECT_EQ(2, takeBack(record, image, database));
    EXPECT_EQ(1, apart(database.rows));
}

} // namespace
