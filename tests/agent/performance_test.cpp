// A set that is performed is compared with its rehearsal, command by command.

#include "RowsDatabase.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

using namespace agent;

namespace {

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
        std::string line = " quorlet \" " + std::string(command) + " ;\" ";
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
} kCases[] = {
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
    for (const auto& [answers, runs, whole] : kCases) {
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
        rehearsal.answer(" quorlet \" " + std::string(rehearsed) + " ;\" ");
        int ran = 0;
        Stage stage(database);
        stage.perform(
            rehearsal.written(),
            [&](const std::string&) {
                ++ran;
                return std::string(kSucceeded);
            },
            nullptr);
        for (int i = 0; i < 2; ++i) // the second time, nothing is left of the rehearsal
            stage.answer(" quorlet \" " + std::string(command) + " ;\" ");
        EXPECT_EQ(runs, ran) << command;
    }
}

} // namespace
