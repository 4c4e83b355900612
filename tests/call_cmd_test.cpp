#include "tests/Platform.h"

#include <cstring>

namespace {

using CallCmdTest = PlatformTest;

const std::string command = " quorlet \" size Atm ;\" ", locked = "Database locked\n";

TEST_F(CallCmdTest, AnswersAndStatuses) {
    const std::string a27(27, 'a'), a28(28, 'a'), a29(29, 'a'), unknown = "Unknown row\n";
    std::deque<Answer> always(20, locked), almost(19, locked);
    almost.push_back("7\n");
    Lines traces(20, locked);
    Lines almostTraces = traces;
    almostTraces.back() = "7";
    const struct {
        std::deque<Answer> runs;
        int status;
        std::string answer; // "old" when left alone
        Lines traces;
    } cases[] = {
        {{"42\n"}, 0, "42", {"42"}},
        {{"42"}, 0, "42", {"42"}},
        {{"a\nb\n\n"}, 0, "a\nb\n", {"a\nb\n"}},
        {{"\n"}, 0, "", {""}},
        {{"Operation succeeded\n"}, 0, "Operation succeeded", {"Operation succeeded"}},
        {{unknown}, 3, "old", {unknown}},
        {{"Unknown row"}, 0, "Unknown row", {"Unknown row"}},
        {{"Database locked"}, 0, "Database locked", {"Database locked"}},
        {{a28}, 0, a28, {a28}},
        {{a27 + "\n"}, 0, a27, {a27}},
        {{a28 + "\n"}, 6, "old", {a28 + "\n"}},
        {{a29 + "bc\n"}, 6, "old", {a29}},
        {{""}, 1, "old", {""}},
        {{Answer("", Answer::Fault::read)}, 1, "old", {""}},
        {{Answer("5\n", Answer::Fault::close)}, 0, "5", {"5"}},
        {{notStarted}, 1, "old", {""}},
        {{locked, "7\n"}, 0, "7", {locked, "7"}},
        {{locked, notStarted}, 1, "old", {locked, locked}}, // it shows what was read before
        {{locked, unknown}, 3, "old", {locked, unknown}},
        {almost, 0, "7", almostTraces},
        {always, 2, "old", traces},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.runs.back().text + " after " + std::to_string(c.runs.size()));
        Lines lines;
        for (const std::string& shown : c.traces)
            lines.push_back("trace:corvanta: " + command + " ==> " + shown);
        char text[200], answer[30] = "old";
        std::string string = "old";
        std::strcpy(text, command.c_str());
        const int length = static_cast<int>(command.size());
        for (const int level : {5, 6, -1}) {
            platform.sleeps.clear();
            platform.script(c.runs);
            EXPECT_EQ(c.status, call_cmd(text, sizeof text, length, answer, 30, level));
            EXPECT_EQ(level < 6 ? lines : Lines{}, platform.takeLog());
            EXPECT_EQ(Lines(c.runs.size(), command), platform.takeCommands());
            EXPECT_EQ(std::vector<unsigned>(c.runs.size() - 1, 1), platform.sleeps);
            platform.script(c.runs);
            EXPECT_EQ(c.status, call_cmd(command, string, level));
            EXPECT_EQ(level < 6 ? lines : Lines{}, platform.takeLog());
            platform.takeCommands();
        }
        EXPECT_EQ(c.answer, answer);
        EXPECT_EQ(c.answer, string);
        EXPECT_EQ(command, text);
        platform.script(c.runs); // the short form: the answer replaces the command
        EXPECT_EQ(c.status, call_cmd(text, sizeof text, length));
        EXPECT_EQ(c.status == 0 ? c.answer : command, text);
        EXPECT_EQ(lines, platform.takeLog());
        platform.takeCommands();
    }
}

TEST_F(CallCmdTest, CommandsThatDoNotFitDoNotRun) {
    char text[200] = "x", answer[4] = "old";
    EXPECT_EQ(4, call_cmd(nullptr, 200, 10, answer, 4, 5));
    EXPECT_EQ(4, call_cmd(nullptr, 0, 0));
    for (const int length : {0, -1, 200, 201})
        EXPECT_EQ(6, call_cmd(text, 200, length, answer, 4, 5)) << length;
    std::string string = "old";
    for (const std::size_t length : {0U, 199U, 200U, 1000U})
        EXPECT_EQ(6, call_cmd(std::string(length, 'x'), string, 5)) << length;
    EXPECT_EQ("old", string);
    EXPECT_STREQ("old", answer);
    EXPECT_EQ(Lines{}, platform.commands);
    EXPECT_EQ(Lines{}, platform.log);

    platform.script({"1\n", "2\n"});
    const std::string longest(198, 'x'), longer(199, 'x');
    EXPECT_EQ(0, call_cmd(longest, string, 7));
    std::strcpy(text, longer.c_str());
    EXPECT_EQ(0, call_cmd(text, 200, 199));
    EXPECT_EQ((Lines{longest, longer}), platform.commands);
}

TEST_F(CallCmdTest, AnswersAreCutToTheTarget) {
    for (const int capacity : {1, 2, 5, 6, 7}) {
        platform.script({"12345\n", "12345\n"});
        char text[] = "xzzzzzzz", answer[] = "zzzzzzzz";
        EXPECT_EQ(0, call_cmd(text, 2, 1, answer, capacity, 7));
        EXPECT_EQ(std::string("12345").substr(0, static_cast<std::size_t>(capacity) - 1), answer);
        EXPECT_EQ('\0', answer[capacity - 1]);
        EXPECT_EQ('z', answer[capacity]) << "nothing beyond the capacity";
        EXPECT_EQ(0, call_cmd(text, 3, 1));
        EXPECT_EQ(std::string("12\0z", 4), std::string(text, 4));
    }
}

} // namespace
