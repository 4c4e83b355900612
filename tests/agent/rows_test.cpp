// On a database in memory: how tables are read while others change them, how a set that is
// performed is compared with its rehearsal, and what becomes of single columns and rows when it is
// taken back.

#include "agent/change/JournalText.h"
#include "agent/change/Restore.h"
#include "agent/change/Stage.h"
#include "agent/dev/DatabaseReader.h"

#include <corvanta.h>

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace agent;
using agent::dev::readTable;

namespace {

/// A command as the library gives it.
std::string quorlet(const std::string& command) {
    return " quorlet \" " + command + " ;\" ";
}

/// Runs a client's command on a database in memory.
std::string run(Image& database, const std::string& command, Record* record = nullptr) {
    return *Stage(database, record).answer(quorlet(command));
}

/// A configuration database in memory and the journal of a change in it, for tests of how changes
/// are taken back.
class RowsDatabase : public RestoreDevice {
public:
    Image rows;
    std::string journal;
    int until = -1;         ///< so many things are done before the process ends; -1 for no end
    bool endsAfter = false; ///< whether the last command is run, unanswered

    bool read(Image& image, Table table) override {
        if (!goesOn())
            return false;
        image[table] = rows[table];
        return true;
    }
    bool readRow(Image& image, Table table, int) override { return read(image, table); }
    bool readIfResized(Image& image, Table table) override { return read(image, table); }
    std::optional<std::string> run(const std::string& line) override {
        const bool ends = !goesOn();
        if (ends && !endsAfter)
            return std::nullopt;
        const auto said = Stage(rows).answer(line);
        return ends ? std::nullopt : said;
    }
    bool store(const Record& record) override {
        if (!goesOn())
            return false;
        journal = toText({false, record});
        return true;
    }

private:
    bool goesOn() {
        if (until > 0)
            --until;
        return until != 0;
    }
};

int restore(RowsDatabase& database, Record record) {
    Image image;
    return takeBack(record, image, database).value_or(-1);
}

/// Runs commands, those of the change and, with a >, those of others.
void act(RowsDatabase& database, Record& record, const std::string& deeds) {
    std::istringstream commands(deeds);
    for (std::string command; std::getline(commands >> std::ws, command, ';');)
        if (command[0] == '>')
            run(database.rows, command.substr(1));
        else
            run(database.rows, command, &record);
    record.settle();
}

/// What the change and others do in turn, a command that tells, its answer, and how many rows are
/// left alone.
const struct {
    const char *deeds, *question, *answer;
    int leftAlone;
} kTakenBack[] = {
    {"updatekey VLAN Id 1 Enable integer:1; >updatekey VLAN Id 1 ParentIf text:wan9",
     "selectkey VLAN Id 1 Enable ParentIf", "0|wan9\n", 0},
    {"updatekey VLAN Id 1 ParentIf text:a; >updatekey VLAN Id 1 ParentIf text:b;"
     "updatekey VLAN Id 1 Enable integer:1",
     "selectkey VLAN Id 1 Enable ParentIf", "0|b\n", 1},
    {"updatekey VLAN Id 1 ParentIf text:a; >updatekey VLAN Id 1 ParentIf text:b;"
     "updatekey VLAN Id 1 ParentIf text:c",
     "selectkey VLAN Id 1 ParentIf", "b\n", 0},
    {"updatekey VLAN Id 1 ParentIf text:a; updatekey VLAN Id 1 ParentIf text:wan1;"
     ">updatekey VLAN Id 1 Enable integer:7",
     "selectkey VLAN Id 1 Enable ParentIf", "7|wan1\n", 0},
    {"updatekey VLAN Id 1 Enable integer:1; >deletekey VLAN Id 1", "size VLAN", "0\n", 1},
    {"updatekey Bridge Id 1 Stp integer:1; >updatekey Bridge Id 1 Name text:theirs",
     "selectkey Bridge Id 1 Name Stp", "theirs|1\n", 1}, // or another row with its Id
    {"insertkey StatusNetifConfig Name text:new; >deletekey StatusNetifConfig Name new",
     "size StatusNetifConfig", "0\n", 0},
    {"insertkey NetworkSetupNode InterfaceName text:new Enable integer:1;"
     ">updatekey NetworkSetupNode InterfaceName new Enable integer:0;"
     "updatekey NetworkSetupNode InterfaceName new Enable integer:2",
     "selectkey NetworkSetupNode InterfaceName new Enable", "0\n", 1},
    // Others' row with the Id of one that the change removed.
    {"deletekey Bridge Name br1; >insertkey Bridge Name text:other", "selectrow Bridge 1 Name Stp",
     "br1|0\n", 0},
    {"deletekey Bridge Name br1; >insertkey Bridge Name text:br1 Stp integer:1;"
     "deletekey Bridge Name br1",
     "selectrow Bridge 0 Name Stp", "br1|0\n", 0},
    {">updatekey Bridge Id 1 Stp integer:5; updatekey Bridge Id 1 Name text:a;"
     ">updatekey Bridge Id 1 Stp integer:6; deletekey Bridge Id 1",
     "selectrow Bridge 0 Name Stp", "br1|6\n", 0},
    // Members of a bridge that is gone, and a bridge that others use.
    {"deletekey BridgeInterface BridgeId 1; >deletekey Bridge Id 1", "size BridgeInterface", "0\n",
     1},
    {"insertkey Bridge Name text:new; insertkey BridgeInterface BridgeId integer:2 Interface "
     "text:a;"
     ">updatekey BridgeInterface Interface a Interface text:b",
     "selectkey Bridge Name new Id", "2\n", 2},
    {"insertkey Bridge Name text:new;"
     ">insertkey BridgeFilter BridgeId integer:2 FilterRule text:a",
     "selectkey Bridge Name new Id", "2\n", 1},
    {"insertkey Bridge Name text:new; updatekey BridgeInterface Id 1 BridgeId integer:2;"
     ">deletekey Bridge Id 1",
     "selectkey BridgeInterface Id 1 BridgeId", "2\n", 2},
};

constexpr char kBridge[] = ">insertkey Bridge Name text:br1 Stp integer:0;"
                           ">insertkey BridgeInterface BridgeId integer:1 Interface text:eth0;";

TEST(ColumnsTest, GoBackAmongWhatOthersWrite) {
    for (const auto& [deeds, question, answer, leftAlone] : kTakenBack) {
        RowsDatabase database;
        Record record;
        database.rows[Table::vlan].push_back({{"1", "0", "eth0.1", "wan1"}});
        act(database, record, std::string(kBridge) + deeds);
        database.journal = toText({true, record});
        EXPECT_EQ(leftAlone, restore(database, record)) << deeds;
        EXPECT_EQ(answer, run(database.rows, question)) << deeds;
    }
}

TEST(ColumnsTest, ComeBackToABridgeThatOthersChangeMeanwhile) {
    RowsDatabase database;
    Record record;
    act(database, record,
        std::string(kBridge) + "deletekey BridgeInterface BridgeId 1; deletekey Bridge Id 1;"
                               ">insertkey Bridge Name text:theirs");
    database.endsAfter = true; // nobody knows the bridge's Id
    database.until = 4; // two tables are read, the journal is written, and the bridge put back
    Image image;
    EXPECT_EQ(std::nullopt, takeBack(record, image, database));
    ASSERT_EQ(2U, database.rows[Table::bridge].size());
    run(database.rows, "updatekey Bridge Name br1 Stp integer:1");
    database.until = -1;
    EXPECT_EQ(1, restore(database, toEntry(database.journal)->record));
    EXPECT_EQ("2\n", run(database.rows, "selectkey BridgeInterface Interface eth0 BridgeId"));
}

TEST(ColumnsTest, ComeBackByAJournalOfVersion1) {
    std::ifstream file(JOURNAL);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    const auto entry = toEntry(text);
    ASSERT_TRUE(entry);
    EXPECT_TRUE(entry->pending);
    RowsDatabase database;
    Record none;
    act(database, none,
        ">insertkey Bridge Name text:brA; >insertkey Bridge Name text:brB Stp integer:1;"
        ">insertkey Bridge Name text:br1;"
        ">insertkey BridgeInterface BridgeId integer:3 Interface text:eth0.101;"
        ">insertkey BridgeInterface BridgeId integer:3 Interface text:wan1;"
        ">deletekey Bridge Name brA; >insertkey StatusNetifConfig Name text:eth0.101");
    database.rows[Table::vlan].push_back({{"1", "1", "eth0.101", "eth0"}});
    database.journal = text;
    EXPECT_EQ(0, restore(database, entry->record));
    EXPECT_EQ("brB|1\n", run(database.rows, "selectrow Bridge 0 Name Stp"));
    EXPECT_EQ("brA with blanks|0\n", run(database.rows, "selectrow Bridge 1 Name Stp"));
    EXPECT_EQ("eth0\n", run(database.rows, "selectkey BridgeInterface BridgeId 4 Interface"));
    EXPECT_EQ("1\n", run(database.rows, "size BridgeInterface"));
    EXPECT_EQ("0\n", run(database.rows, "size StatusNetifConfig"));
    EXPECT_EQ("0\n", run(database.rows, "selectkey VLAN Id 1 Enable"));
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::string torn = text;
        torn[i] = static_cast<char>(torn[i] ^ 1);
        EXPECT_FALSE(toEntry(torn)) << i;
        EXPECT_FALSE(toEntry(text.substr(0, i))) << i;
    }
}

/// Has a stage answer five commands, as the library gives them.
/// @param again  whether one is given again that finds the database locked
void play(Stage& stage, const std::function<bool()>& again) {
    std::string row;
    for (const char* const command : {
             "updatekey VLAN Id 1 Enable integer:1",
             "insertkey BridgeInterface BridgeId integer:1 Interface text:eth0.101",
             "insertkey BridgeInterface BridgeId integer:1 Interface text:",
             "updatekey BridgeInterface Id % Interface text:wan1",
             "deletekey VLAN Id 2",
         }) {
        std::string line = quorlet(command);
        if (const auto place = line.find('%'); place != line.npos)
            line.replace(place, 1, row);
        std::string said;
        do
            said = stage.answer(line).value_or("");
        while (said == kLocked && again());
        row = std::to_string(idIn(said));
    }
}

/// Answers of the client in turn, how many commands it is given, and whether the set is whole; the
/// third inserts the neighbour of what the second inserts, and the fourth names that row.
const std::string kOk(kSucceeded);
const std::string kLockedAnswer(kLocked);
const std::string kUnknown(kUnknownRow);
const struct {
    std::vector<std::string> answers;
    std::size_t runs;
    bool whole;
} kPerformed[] = {
    {{kOk, "4\n", "5\n", kOk, kOk}, 5, true},
    {{kOk, "7\n", "8\n", kOk, kOk}, 5, true},
    {{kLockedAnswer, kOk, "7\n", "8\n", kOk, kOk}, 6, true},
    {{kOk, "7\n", "9\n", kOk, kOk}, 3, false},
    {{kOk, "7\n", "7\n", kOk, kOk}, 3, false},
    {{"", "7\n", "8\n", kOk, kOk}, 1, false},
    {{kUnknown, "7\n", "8\n", kOk, kOk}, 1, false},
    {{"Operation succ", "7\n", "8\n", kOk, kOk}, 1, false},
    {{kOk, "", "8\n", kOk, kOk}, 2, false},
    {{kOk, "7", "8\n", kOk, kOk}, 2, false},
    {{kOk, "3\n", "4\n", kOk, kOk}, 2, false},
    {{kOk, kLockedAnswer, "7\n", "8\n", kOk, kOk}, 6, true},
    {{kOk, "Operation succeeded\n"}, 2, false},
    {{kOk, "-1\n"}, 2, false},
    {{kOk, "7 rows\n"}, 2, false},
    {{kOk, "7\n", "8\n", kOk, kUnknown}, 5, false},
    {{kOk, "7\n", "8\n", kOk, kLockedAnswer}, 5, false},
};

TEST(PerformanceTest, EndsWhereTheClientAnswersOtherwise) {
    for (const auto& [answers, runs, whole] : kPerformed) {
        SCOPED_TRACE(testing::PrintToString(answers));
        Image database;
        for (int id = 1; id < 3; ++id)
            database[Table::vlan].push_back({{std::to_string(id), "0", "eth0.1", "wan1"}});
        database[Table::bridgeInterface].push_back({{"3", "9", "eth0", "0", "0"}});
        Image rehearsed = database;
        Stage rehearsal(rehearsed);
        std::vector<std::string> given;
        Stage stage(database);
        int renumbered = 0;
        stage.perform(
            rehearsal.written(),
            [&, &said = answers](const std::string& line) {
                given.push_back(line);
                return given.size() <= said.size() ? said[given.size() - 1] : kOk;
            },
            [&](const Rehearsed&, int) { return ++renumbered > 0; });
        play(rehearsal, [] { return false; });
        play(stage, [&, most = answers.size()] { return given.size() < most; });
        EXPECT_EQ(runs, given.size());
        EXPECT_EQ(whole, stage.isWhole());
        EXPECT_EQ(whole && answers[1] != "4\n" ? 2 : renumbered, renumbered);
    }
}

TEST(PerformanceTest, TranslatesTheIdsOfNewRows) {
    // "%" is the Id that the first one answers, "^" that of the second.
    const char* const commands[] = {
        "insertkey Bridge Name text:br1",
        "insertkey BridgeInterface BridgeId integer:% Interface text:eth0",
        "updatekey BridgeInterface Id ^ Interface text:eth1",
        "updatekey BridgeInterface BridgeId % AllowDHCP integer:1",
    };
    const std::string answers[] = {"9\n", "7\n", kOk, kOk};
    Image database;
    Image image;
    Record planned;
    Record done;
    Stage rehearsal(image, &planned);
    Stage stage(database, &done);
    std::size_t runs = 0;
    stage.perform(
        rehearsal.written(), [&](const std::string&) { return answers[runs++]; },
        [&](const Rehearsed& row, int id) {
            planned.renumber(row.command.table, row.trail, id);
            return true;
        });
    for (Stage* const on : {&rehearsal, &stage}) {
        std::vector<std::string> ids;
        for (std::string command : commands) {
            if (const auto at = command.find_first_of("%^"); at != command.npos)
                command.replace(at, 1, ids[command[at] == '%' ? 0 : 1]);
            ids.push_back(
                std::to_string(idIn(on->answer(" quorlet \" " + command + " ;\" ").value_or(""))));
        }
    }
    EXPECT_TRUE(stage.isWhole());
    EXPECT_EQ("7|9|eth1|0|1", database[Table::bridgeInterface].front().text());
    for (const Record* const record : {&planned, &done}) {
        EXPECT_EQ(9, (*record)[Table::bridge].trails.front().id);
        const Trail& member = (*record)[Table::bridgeInterface].trails.front();
        EXPECT_EQ(7, member.id);
        EXPECT_TRUE(member.columns[1].isOwn("9"));
        EXPECT_FALSE(member.columns[1].isOwn("7"));
    }
}

TEST(PerformanceTest, RunsNothingThatWasNotRehearsed) {
    const char* const rehearsed = "updatekey Bridge Id 1 Stp integer:1";
    const std::pair<const char*, int> cases[] = {
        {rehearsed, 1},
        {"updatekey Bridge Id 2 Stp integer:1", 0},
        {"updatekey Bridge Name br1 Stp integer:1", 0},
        {"updatekey Bridge Id 1 Stp integer:0", 0},
        {"updatekey Bridge Id 1 Name text:1", 0},
        {"deletekey Bridge Id 1", 0},
        {"insertkey Bridge Stp integer:1", 0},
        {"updatekey StatusNetifConfig Id 1 Name text:1", 0},
        {"deletekey Bridge Id 3", 0}, // there is none
    };
    for (const auto& [command, runs] : cases) {
        Image database;
        run(database, "insertkey Bridge Name text:br1");
        run(database, "insertkey Bridge Name text:br2");
        run(database, "insertkey StatusNetifConfig Name text:eth0");
        Image image = database;
        Stage rehearsal(image);
        rehearsal.answer(quorlet(rehearsed));
        int ran = 0;
        Stage stage(database);
        stage.perform(
            rehearsal.written(), [&](const std::string&) { return ++ran, kOk; }, nullptr);
        for (int i = 0; i < 2; ++i) // the second time, nothing is left of the rehearsal
            stage.answer(quorlet(command));
        EXPECT_EQ(runs, ran) << command;
    }
}

/// The database that the library reads, through popen() below.
struct Device {
    Image database;
    std::function<void(int)> others; ///< what they do before the command with that number
    int commands = 0;
    std::string answer;
};
Device device;

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
    device.others = [](int) { run(device.database, "insertkey Bridge Name text:more"); };
    Image image;
    EXPECT_EQ(CORVANTA_FAILED, readTable(image, Table::bridge));
    EXPECT_TRUE(image[Table::bridge].empty());
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
