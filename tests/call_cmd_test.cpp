#include "tests/Platform.h"

#include <cstring>

namespace {

using CallCmdTest = PlatformTest;

TEST_F(CallCmdTest, AnswersAndStatuses) {
    const std::string command = " quorlet \" size Atm ;\" ", busy = "Database locked";
    const std::string a27(27, 'a'), a28(28, 'a'), none = "Unknown row";
    const std::string locked = busy + "\n";
    const Answer unread("", Answer::Fault::read), unclosed("5\n", Answer::Fault::close);
    const struct {
        Answer last;
        int status;
        std::string answer;
        std::size_t locks; // before the last answer
    } cases[] = {{"42\n", 0, "42", 0},         {"42", 0, "42", 0},
                 {"a\nb\n\n", 0, "a\nb\n", 0}, {"\n", 0, "", 0},
                 {none + "\n", 3, "old", 0},   {none, 0, none, 0},
                 {busy, 0, busy, 0},           {a28, 0, a28, 0},
                 {a27 + "\n", 0, a27, 0},      {a28 + "\n", 6, "old", 0},
                 {a28 + "abc\n", 6, "old", 0}, {"", 1, "old", 0},
                 {unread, 1, "old", 0},        {unclosed, 0, "5", 0},
                 {notStarted, 1, "old", 0},    {notStarted, 1, "old", 1},
                 {none + "\n", 3, "old", 1},   {"7\n", 0, "7", 19},
                 {locked, 2, "old", 19}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.last.text + " after " + std::to_string(c.locks));
        std::deque<Answer> runs(c.locks, locked);
        runs.push_back(c.last);
        Lines lines(runs.size(), "trace:corvanta: " + command + " ==> ");
        for (std::size_t i = 0; i < c.locks; ++i)
            lines[i] += locked;
        if (c.last.fault == Answer::Fault::start && c.locks > 0)
            lines.back() += locked; // it shows what was read before
        lines.back() += c.status == 0 ? c.answer : c.last.text.substr(0, 29);
        char text[200], answer[30] = "old";
        std::string string = "old";
        std::strcpy(text, command.c_str());
        const int length = static_cast<int>(command.size());
        const unsigned long failures = client_failures();
        for (const int level : {5, 6, -1}) {
            platform.sleeps.clear();
            platform.script(runs);
            EXPECT_EQ(c.status, call_cmd(text, sizeof text, length, answer, 30, level));
            EXPECT_EQ(level < 6 ? lines : Lines{}, platform.takeLog());
            EXPECT_RUN(Lines(runs.size(), command));
            EXPECT_EQ(std::vector<unsigned>(runs.size() - 1, 1), platform.sleeps);
            platform.script(runs);
            EXPECT_EQ(c.status, call_cmd(command, string, level));
            EXPECT_EQ(level < 6 ? lines : Lines{}, platform.takeLog());
        }
        EXPECT_EQ(c.answer, answer);
        EXPECT_EQ(c.answer, string);
        EXPECT_EQ(command, text);
        platform.script(runs); // the short form: the answer replaces the command
        EXPECT_EQ(c.status, call_cmd(text, sizeof text, length));
        EXPECT_EQ(c.status == 0 ? c.answer : command, text);
        EXPECT_EQ(lines, platform.takeLog());
        const bool failed = c.status != 0 && c.status != 3; // once a command, not once a run
        EXPECT_EQ(failures + (failed ? 7 : 0), client_failures());
    }
}

TEST_F(CallCmdTest, Limits) {
    char text[200] = "x", answer[] = "zzzzzzzz";
    std::string string = "old";
    const unsigned long failures = client_failures();
    EXPECT_EQ(4, call_cmd(nullptr, 200, 10, answer, 4, 5));
    EXPECT_EQ(4, call_cmd(nullptr, 0, 0));
    for (const int length : {0, -1, 200, 201})
        EXPECT_EQ(6, call_cmd(text, 200, length, answer, 4, 5)) << length;
    for (const std::size_t length : {0U, 199U, 200U, 1000U})
        EXPECT_EQ(6, call_cmd(std::string(length, 'x'), string, 5)) << length;
    EXPECT_EQ(failures + 10, client_failures());
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
