// A set that is performed is compared with its rehearsal, command by command.

#include "RowsDatabase.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace agent;

namespace {

TEST(PerformanceTest, EndsWhereTheClientAnswersOtherwise) {
    // Answers of the client in turn, and how many commands it is given; the third inserts the
    // neighbour of what the second inserts, and the fourth names the row that the third inserts.
    const std::string ok(kSucceeded);
    const std::string locked(kLocked);
    const std::string unknown(kUnknownRow);
    const struct {
        std::vector<std::string> answers;
        std::size_t runs;
        bool whole;
    } cases[] = {
        {{ok, "4\n", "5\n", ok, ok}, 5, true},
        {{ok, "7\n", "8\n", ok, ok}, 5, true},
        {{locked, ok, "7\n", "8\n", ok, ok}, 6, true},
        {{ok, "7\n", "9\n", ok, ok}, 3, false},
        {{ok, "7\n", "7\n", ok, ok}, 3, false},
        {{"", "7\n", "8\n", ok, ok}, 1, false},
        {{unknown, "7\n", "8\n", ok, ok}, 1, false},
        {{"Operation succ", "7\n", "8\n", ok, ok}, 1, false},
        {{ok, "", "8\n", ok, ok}, 2, false},
        {{ok, "7", "8\n", ok, ok}, 2, false},
        {{ok, "3\n", "4\n", ok, ok}, 2, false},
        {{ok, locked, "7\n", "8\n", ok, ok}, 6, true},
        {{ok, "Operation succeeded\n"}, 2, false},
        {{ok, "-1\n"}, 2, false},
        {{ok, "7\n", "8\n", ok, unknown}, 5, false},
        {{ok, "7\n", "8\n", ok, locked}, 5, false},
    };
    for (const auto& [answers, runs, whole] : cases) {
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
                return given.size() <= said.size() ? said[given.size() - 1] : ok;
            },
            [&](const Rehearsed&, int) { return ++renumbered > 0; });
        for (Stage* const on : {&rehearsal, &stage}) {
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
                    said = on->answer(line).value_or("");
                while (said == kLocked && given.size() < answers.size());
                row = std::to_string(idIn(said));
            }
        }
        EXPECT_EQ(runs, given.size());
        EXPECT_EQ(whole, stage.isWhole());
        EXPECT_EQ(whole && answers[1] != "4\n" ? 2 : renumbered, renumbered);
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
