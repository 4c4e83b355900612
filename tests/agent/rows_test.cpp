// How the agent takes changes back, on a database in memory: many changes made up at random, each
// broken off somewhere, beside what others do.

#include "agent/change/JournalText.h"
#include "agent/change/Restore.h"
#include "agent/change/Stage.h"
#include "agent/dev/DatabaseReader.h"

#include <corvanta.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <utility>

using namespace agent;
using agent::dev::readTable;

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
/// The database that the library reads, through popen() below.
struct Device {
    Image database;
    std::function<void(int)> others; ///< what they do before the command with that number
    int commands = 0;
    std::string answer;
};
Device device;

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

    /// @param others what they do before each command
    /// @return how many rows were left alone; -1 when it came to no end
    int takeBack(
        const Record& record, Image& database, const std::function<void()>& others = [] {}) {
        constexpr int kMostRounds = 50;
        constexpr int kBrokenOff = 20; ///< anywhere, and begun again
        for (int round = 0; round < kMostRounds; ++round) {
            const Restoring next = restoring(record, database, std::max(0, round - kBrokenOff));
            if (next.commands.empty())
                return next.leftAlone;
            auto until = next.commands.end();
            if (round < kBrokenOff)
                until = next.commands.begin() + 1 + pick(static_cast<int>(next.commands.size()));
            for (auto command = next.commands.begin(); command != until; ++command) {
                others();
                Stage(database).answer(*command);
            }
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
    constexpr int kTries = 5000;
    for (int i = 0; i < kTries && !HasFailure(); ++i) {
        Image database;
        for (int n = pick(6); n > 0; --n)
            for (const std::string& command : toggle(database, 1 + pick(4)))
                run(database, command);
        Image expected = database;
        Record record;
        Image rehearsal = database;
        std::vector<std::string> commands;
        for (int n = 1 + pick(5); n > 0; --n)
            for (const std::string& command : toggle(rehearsal, 1 + pick(4))) {
                run(rehearsal, command, &record);
                commands.push_back(command);
            }
        const std::size_t done = random() % (commands.size() + 1);
        for (std::size_t n = 0; n < done; ++n)
            run(database, commands[n]);
        int others = pick(4);
        const auto comeBetween = [&] {
            if (others == 0 || pick(3) != 0)
                return;
            const std::string row =
                "insertkey BridgeInterface BridgeId integer:99 Interface text:o" +
                std::to_string(others--);
            run(database, row);
            run(expected, row);
        };
        SCOPED_TRACE("try " + std::to_string(i) + "\n" + toLines(record));
        EXPECT_EQ(0, takeBack(record, database, comeBetween));
        EXPECT_EQ(contents(expected), contents(database));
        EXPECT_EQ(apart(expected), apart(database));
    }
}

TEST_F(NeighboursTest, AreToldOfWhenOthersAlwaysComeBetween) {
    Image database;
    for (const std::string& command : toggle(database, 1))
        run(database, command);
    Record record;
    for (const std::string& command : toggle(database, 1))
        run(database, command, &record);
    int n = 0;
    const auto comeBetween = [&] {
        run(database,
            "insertkey BridgeInterface BridgeId integer:99 Interface text:o" + std::to_string(++n));
    };
    EXPECT_EQ(2, takeBack(record, database, comeBetween));
    EXPECT_EQ(1, apart(database));
}

TEST(PerformanceTest, EndsWhereTheClientAnswersOtherwise) {
    // Answers of the client in turn, and how many commands of four it is given; the third inserts
    // the neighbour of what the second inserts.
    const char* const commands[] = {
        "updatekey VLAN Id 1 Enable integer:1",
        "insertkey BridgeInterface BridgeId integer:1 Interface text:eth0.101",
        "insertkey BridgeInterface BridgeId integer:1 Interface text:",
        "deletekey VLAN Id 2",
    };
    const std::string ok(kSucceeded);
    const std::string locked(kLocked);
    const std::string unknown(kUnknownRow);
    const struct {
        std::vector<std::string> answers;
        std::size_t runs;
    } cases[] = {
        {{ok, "7\n", "8\n", ok}, 4},        {{ok, "7\n", "9\n", ok}, 3},
        {{ok, "7\n", "7\n", ok}, 3},        {{"", "7\n", "8\n", ok}, 1},
        {{unknown, "7\n", "8\n", ok}, 1},   {{"Operation succ", "7\n", "8\n", ok}, 1},
        {{ok, "", "8\n", ok}, 2},           {{ok, "7", "8\n", ok}, 2},
        {{ok, "3\n", "4\n", ok}, 2},        {{ok, locked, "7\n", ok}, 2},
        {{ok, "Operation succeeded\n"}, 2}, {{ok, "-1\n"}, 2},
        {{ok, "7\n", "8\n", unknown}, 4},
    };
    for (const auto& [answers, runs] : cases) {
        Image database;
        for (int id = 1; id < 3; ++id)
            database[Table::vlan].push_back({{std::to_string(id), "0", "eth0.1", "wan1"}});
        database[Table::bridgeInterface].push_back({{"3", "9", "eth0", "0", "0"}});
        std::vector<std::string> given;
        Stage stage(database, nullptr, [&, &said = answers](const std::string& line) {
            given.push_back(line);
            return given.size() <= said.size() ? said[given.size() - 1] : ok;
        });
        for (const char* const command : commands)
            stage.answer(" quorlet \" " + std::string(command) + " ;\" ");
        SCOPED_TRACE(testing::PrintToString(answers));
        EXPECT_EQ(runs, given.size());
        EXPECT_EQ(answers != cases[0].answers, stage.brokenOff());
    }
}

TEST(PerformanceTest, TriesAgainWhatWasLockedAndRunsNothingForARowThatThereIsNot) {
    Image database;
    database[Table::vlan].push_back({{"1", "0", "eth0.1", "wan1"}});
    int runs = 0;
    Stage stage(database, nullptr, [&](const std::string&) {
        return std::string(++runs == 1 ? kLocked : kSucceeded);
    });
    const std::string update = " quorlet \" updatekey VLAN Id 1 Enable integer:1 ;\" ";
    EXPECT_EQ(kLocked, stage.answer(update));
    EXPECT_EQ(kSucceeded, stage.answer(update));
    EXPECT_EQ(kUnknownRow, stage.answer(" quorlet \" deletekey Bridge Id 1 ;\" "));
    EXPECT_EQ(2, runs);
    EXPECT_FALSE(stage.brokenOff());
}

TEST(ReadingTest, MissesNoRowWhileOthersChangeTheTable) {
    const char* const changes[] = {
        "deletekey Bridge Id 1",
        "deletekey Bridge Id 3",
        "deletekey Bridge Id 5",
        "insertkey Bridge Name text:new",
    };
    for (const char* const change : changes) {
        for (int when = 0; when < 10; ++when) {
            device = {};
            for (int id = 1; id < 6; ++id)
                run(device.database, "insertkey Bridge Name text:br" + std::to_string(id));
            Image image;
            ASSERT_EQ(CORVANTA_OK, readTable(image, Table::bridge));
            device.commands = 0;
            device.others = [&](int command) {
                if (command == when)
                    run(device.database, change);
            };
            EXPECT_EQ(CORVANTA_OK, readTable(image, Table::bridge));
            for (const Row& row : device.database[Table::bridge])
                EXPECT_NE(image[Table::bridge].end(), image.find(Table::bridge, row.id()))
                    << change << " before command " << when;
        }
    }
    device = {};
    device.database[Table::bridge] = {{{"1", "br1", "0"}}, {{"1", "br1", "0"}}};
    Image image;
    EXPECT_EQ(CORVANTA_OK, readTable(image, Table::bridge)) << "two rows with one Id";
    EXPECT_EQ(2U, image[Table::bridge].size());
    device.others = [](int) { run(device.database, "insertkey Bridge Name text:more"); };
    EXPECT_EQ(CORVANTA_FAILED, readTable(image, Table::bridge));
    EXPECT_EQ(2U, image[Table::bridge].size());
}

TEST(ReadingTest, ComesToAnEndWhileOthersAddAndRemoveRows) {
    constexpr int kRows = 40;
    constexpr int kEvery = 6; ///< commands, far fewer than a table takes
    for (int when = 0; when < 2 * kEvery; ++when) {
        device = {};
        for (int id = 1; id <= kRows + 1; ++id) // others can remove the last one
            run(device.database, "insertkey Bridge Name text:br" + std::to_string(id));
        device.others = [&](int command) {
            if (command % (2 * kEvery) == when)
                run(device.database, "insertkey Bridge Name text:new");
            else if (command % kEvery == when % kEvery)
                run(device.database,
                    "deletekey Bridge Id " + device.database[Table::bridge].back().columns[0]);
            else if (command % kEvery == (when + 1) % kEvery)
                run(device.database, "insertkey Bridge Name text:more");
        };
        Image image;
        EXPECT_EQ(CORVANTA_OK, readTable(image, Table::bridge)) << when;
        for (int id = 1; id <= kRows; ++id)
            EXPECT_NE(image[Table::bridge].end(), image.find(Table::bridge, id)) << when;
    }
}

} // namespace

/// Takes the place of the system library's for the library.
extern "C" FILE* popen(const char* command, const char*) {
    if (device.others)
        device.others(device.commands++);
    device.answer = *Stage(device.database).answer(command);
    return fmemopen(device.answer.data(), device.answer.size(), "r");
}

extern "C" int pclose(FILE* stream) {
    return fclose(stream);
}
