#include "tests/Platform.h"

#include <cstring>

namespace {

using CallCmdTest = PlatformTest;

TEST_F(CallCmdTest, AnswersAndStatuses) {
    const std::string command = " quorlet \" size Atm ;\" ", locked = "Database locked\n";
    const std::string a27(27, 'a'), a28(28, 'a'), unknown = "Unknown row\n";
    std::deque<Answer> almost(19, locked), always(20, locked);
    almost.push_back("7\n");
    const struct {
        std::deque<Answer> runs;
        int status;
        std::string answer = "old"; // left alone
    } cases[] = {{{"42\n"}, 0, "42"},
                 {{"42"}, 0, "42"},
                 {{"a\nb\n\n"}, 0, "a\nb\n"},
                 {{"\n"}, 0, ""},
                 {{unknown}, 3},
                 {{"Unknown row"}, 0, "Unknown row"},
                 {{"Database locked"}, 0, "Database locked"},
                 {{a28}, 0, a28},
                 {{a27 + "\n"}, 0, a27},
                 {{a28 + "\n"}, 6},
                 {{a28 + "abc\n"}, 6},
                 {{""}, 1},
                 {{Answer("", Answer::Fault::read)}, 1},
                 {{Answer("5\n", Answer::Fault::close)}, 0, "5"},
                 {{notStarted}, 1},
                 {{locked, notStarted}, 1},
                 {{locked, unknown}, 3},
                 {almost, 0, "7"},
                 {always, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.runs.back().text + " after " + std::to_string(c.runs.size()));
        Lines lines;
        std::string shown; // a client that does not start leaves what was read before
        for (const Answer& run : c.runs) {
            if (run.fault != Answer::Fault::start)
                shown = run.text.substr(0, 29);
            lines.push_back("trace:corvanta: " + command + " ==> " + shown);
        }
        if (c.status == 0 && shown.back() == '\n')
            lines.back().pop_back();
        char text[200], answer[30] = "old";
        std::string string = "old";
        std::strcpy(text, command.c_str());
        const int length = static_cast<int>(command.size());
        for (const int level : {5, 6, -1}) {
            platform.sleeps.clear();
            platform.script(c.runs);
            EXPECT_EQ(c.status, call_cmd(text, sizeof text, length, answer, 30, level));
            EXPECT_EQ(level < 6 ? lines : Lines{}, platform.takeLog());
            EXPECT_EQ(Lines(c.runs.size(), command), std::exchange(platform.commands, {}));
            EXPECT_EQ(std::vector<unsigned>(c.runs.size() - 1, 1), platform.sleeps);
            platform.script(c.runs);
            EXPECT_EQ(c.status, call_cmd(command, string, level));
            EXPECT_EQ(level < 6 ? lines : Lines{}, platform.takeLog());
            platform.commands.clear();
        }
        EXPECT_EQ(c.answer, answer);
        EXPECT_EQ(c.answer, string);
        EXPECT_EQ(command, text);
        platform.script(c.runs); // the short form: the answer replaces the command
        EXPECT_EQ(c.status, call_cmd(text, sizeof text, length));
        EXPECT_EQ(c.status == 0 ? c.answer : command, text);
        EXPECT_EQ(lines, platform.takeLog());
        platform.commands.clear();
    }
}

TEST_F(CallCmdTest, Limits) {
    char text[200] = "x", answer[] = "zzzzzzzz";
    std::string string = "old";
    EXPECT_EQ(4, call_cmd(nullptr, 200, 10, answer, 4, 5));
    EXPECT_EQ(4, call_cmd(nullptr, 0, 0));
    for (const int length : {0, -1, 200, 201})
        EXPECT_EQ(6, call_cmd(text, 200, length, answer, 4, 5)) << length;
    for (const std::size_t length : {0U, 199U, 200U, 1000U})
        EXPECT_EQ(6, call_cmd(std::string(length, 'x'), string, 5)) << length;
    EXPECT_EQ("old", string);
    EXPECT_EQ('z', answer[0]);
    EXPECT_LOG();
    EXPECT_RUN();
    const std::string longest(198, 'x'), longer(199, 'x');
    platform.script({"1\n", "2\n"});
    EXPECT_EQ(0, call_cmd(longest, string, 7));
    std::strcpy(text, longer.c_str());
    EXPECT_EQ(0, call_cmd(text, 200, 199));
    EXPECT_RUN(longest, longer);

    for (const int capacity : {1, 2, 5, 6, 7}) { // of the answer
        platform.script({"12345\n", "12345\n"});
        EXPECT_EQ(0, call_cmd(text, 200, 1, answer, capacity, 7));
        EXPECT_EQ(std::string("12345").substr(0, static_cast<std::size_t>(capacity) - 1), answer);
        EXPECT_EQ('\0', answer[capacity - 1]);
        EXPECT_EQ('z', answer[capacity]) << "nothing beyond the capacity";
        std::memcpy(text, "xzzz", 4);
        EXPECT_EQ(0, call_cmd(text, 3, 1));
        EXPECT_EQ(std::string("12\0z", 4), std::string(text, 4));
    }
}

} // namespace
