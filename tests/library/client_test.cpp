// Commands, and the accessors of one field or row.

#include "tests/library/Platform.h"

#include "readers/Table.h"

#include <cstring>

using kavo::snmp::Table;

namespace {

using ClientTest = PlatformTest;

const Answer locked("Database locked\n");
const std::string unknownRow = "Unknown row\n";

TEST_F(ClientTest, CommandsAnswersAndStatuses) {
    const std::string command = " quorlet \" size Atm ;\" ";
    const std::string a28(28, 'a'), none = "Unknown row";
    const Answer unread("", Answer::Fault::read), unclosed("5\n", Answer::Fault::close);
    const struct {
        Answer last;
        int status;
        std::string answer;
        std::size_t locks; // before the last answer
    } cases[] = {{"42\n", 0, "42", 0},       {"a\nb\n\n", 0, "a\nb\n", 0}, {"\n", 0, "", 0},
                 {none + "\n", 3, "old", 1}, {none, 0, none, 0},           {a28, 0, a28, 0},
                 {a28 + "\n", 6, "old", 0},  {unread, 1, "old", 0},        {unclosed, 0, "5", 0},
                 {notStarted, 1, "old", 1},  {"7\n", 0, "7", 19},          {locked, 2, "old", 19}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.last.text + " after " + std::to_string(c.locks));
        std::deque<Answer> runs(c.locks, locked);
        runs.push_back(c.last);
        Lines lines(runs.size(), "trace:corvanta: " + command + " ==> ");
        for (std::size_t i = 0; i < c.locks; ++i)
            lines[i] += locked.text;
        if (c.last.fault == Answer::Fault::start && c.locks > 0)
            lines.back() += locked.text; // it shows what was read before
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

TEST_F(ClientTest, CommandsLimits) {
    char text[200] = "x", answer[] = "zzzzzzzz";
    std::string string = "old";
    const unsigned long failures = client_failures();
    EXPECT_EQ(4, call_cmd(nullptr, 200, 10, answer, 4, 5));
    EXPECT_EQ(4, call_cmd(nullptr, 0, 0));
    EXPECT_EQ(6, call_cmd(text, 200, 10, answer, 0, 5));
    for (const int length : {0, -1, 200})
        EXPECT_EQ(6, call_cmd(text, 200, length, answer, 4, 5)) << length;
    for (const std::size_t length : {0U, 199U, 1000U})
        EXPECT_EQ(6, call_cmd(std::string(length, 'x'), string, 5)) << length;
    EXPECT_EQ(failures + 9, client_failures());
    EXPECT_EQ("old", string);
    EXPECT_EQ('z', answer[0]);
    EXPECT_LOG();
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

TEST_F(ClientTest, Integers) {
    int value = 77;
    for (const int access : {0, 4, 5, -1})
        EXPECT_EQ(access >= 0 && access <= 4 ? 1 : 6,
                  config_int_access_by_id(access_type(access), &value, "Atm", "Enabled", 3));
    const auto byKey = [&](const std::string& column) {
        return config_int_read_by_key(&value, "T", column.c_str(), "K", "v");
    };
    const std::string blanks(97, ' ');
    const struct {
        Answer answer;
        int status, value;
    } reads[] = {{" 12 3\n", 0, 12},
                 {unknownRow + "x", 1, 77},
                 {"7" + blanks, 0, 7},
                 {"7" + blanks + " ", 1, 77}};
    for (const auto& c : reads) {
        platform.script({c.answer});
        m_bVerbose = !m_bVerbose;
        value = 77;
        EXPECT_EQ(c.status, byKey("C"));
        EXPECT_EQ(c.value, value) << c.answer.text;
        const std::string trace = "trace:corvanta:  quorlet \" selectkey T K v C ;\" ";
        EXPECT_EQ(m_bVerbose ? Lines{trace} : Lines{}, platform.takeLog());
    }
    const std::size_t rest =
        quorlet(" selectkey T Id 1  ;").size(); // of commands up to their limit
    const std::string longest(99 - rest, 'C'), tooLong = longest + "C";
    const unsigned long failures = client_failures();
    EXPECT_EQ(6, config_int_access_by_id(access_get, &value, "T", tooLong.c_str(), 1));
    EXPECT_EQ(1, byKey(tooLong + "C"));
    EXPECT_EQ(failures + 2, client_failures());
    platform.script({"5\n", "5\n"});
    EXPECT_EQ(0, config_int_access_by_id(access_get, &value, "T", longest.c_str(), 1));
    EXPECT_EQ(0, byKey(longest + "C"));
}

/// What a text is read from, into how large a buffer, and what comes of it.
struct TextRead {
    Answer answer;
    int capacity, status;
    std::string text = "o"; ///< of the buffer, which had this
    unsigned long failures = 0;
};

template <typename Read>
void expectEach(const std::vector<TextRead>& reads, const std::string& command, Read read) {
    for (const TextRead& c : reads) {
        SCOPED_TRACE(c.answer.text.substr(0, 20) + "/" + std::to_string(c.capacity));
        std::vector<char> buffer(static_cast<std::size_t>(c.capacity) + 1, 'z');
        std::strcpy(buffer.data(), "o");
        buffer.back() = 'z';
        const unsigned long failures = client_failures();
        int length = 77;
        platform.script({c.answer});
        EXPECT_EQ(c.status, read(buffer.data(), c.capacity, &length));
        EXPECT_EQ(c.text, buffer.data());
        EXPECT_EQ(c.status == 0 ? static_cast<int>(c.text.size()) : 77, length);
        EXPECT_EQ('z', buffer.back()) << "beyond the capacity";
        EXPECT_EQ(failures + c.failures, client_failures());
        EXPECT_RUN(command);
    }
    EXPECT_LOG();
}

TEST_F(ClientTest, TextReads) {
    const auto read = [](char* buffer, int capacity, int* length) {
        return config_string_access_by_id(access_get, buffer, capacity, length, "Bridge", "Name",
                                          4);
    };
    const std::string x13(13, 'x'), x14(14, 'x'), x28(28, 'x'), none = "Unknown row";
    const std::vector<TextRead> reads = {
        {x13 + "\n", 15, 0, x13},   {x14 + "y\n", 15, 6, x14}, // counted with its newline
        {x13 + "\n\n", 16, 0, x13}, {x13 + "\n\n", 15, 6, x13 + "\n"},
        {"\n", 15, 0, ""},          {"a\n", 3, 0, "a"},
        {x28, 200, 0, x28},         {none + "\n", 15, 3},
        {none, 15, 3, ""},          {none + "\n\n", 15, 3, ""},
        {none, 12, 6, none},        {none + "s", 15, 0, none + "s"}};
    expectEach(reads, quorlet("  selectkey Bridge Id 4 Name  ;"), read);
    char buffer[] = "old";
    int length = 77;
    EXPECT_EQ(6, read(buffer, 2, &length));
    EXPECT_EQ(1, config_string_access_by_id(access_create, buffer, 4, &length, "B", "N", 4));
    EXPECT_STREQ("old", buffer);
}

TEST_F(ClientTest, WholeRows) {
    const auto read = [](char* buffer, int capacity, int* length) {
        return config_row_read("Atm", 3, buffer, capacity, length);
    };
    const std::string row = "1|0|atm 1||35|0|and more than 28 bytes", x4093(4093, 'x');
    const std::vector<TextRead> reads = {{row + "\n", 40, 0, row},
                                         {"1|2\n", 4, 0, "1|2"},
                                         {"1|2\n", 3, 6},
                                         {"\n", 1, 0, ""},
                                         {unknownRow, 99, 3},
                                         {"", 99, 1, "o", 1},
                                         {"1|2", 99, 6, "o", 1}, // cut off
                                         {"1|2\n3|4\n", 99, 6, "o", 1},
                                         {std::string("1|\0002\n", 5), 99, 6, "o", 1},
                                         {x4093 + "\n", 4094, 0, x4093},
                                         {x4093 + "x\n", 5000, 6, "o", 1}};
    expectEach(reads, quorlet("  selectrow Atm 3  ;"), read);
    char buffer[9];
    int length;
    EXPECT_EQ(1, config_row_read(nullptr, 1, buffer, 9, &length));
    EXPECT_EQ(1, read(nullptr, 9, &length));
    EXPECT_EQ(1, read(buffer, 9, nullptr));
    platform.script({"1\n"});
    EXPECT_EQ(6, read(buffer, -1, &length));
}

int write(const std::string& text, int length, int capacity) {
    const std::vector<char> original(text.begin(), text.end()); // with no byte to spare
    std::vector<char> buffer = original;
    const int status = config_string_access_by_id(access_set, buffer.data(), capacity, &length,
                                                  "BridgeInterface", "Interface", 2);
    EXPECT_EQ(original, buffer);
    return status;
}

std::string written(const std::string& text) {
    return quorlet(" updatekey BridgeInterface Id 2 Interface text:" + text + " ;");
}

TEST_F(ClientTest, TextWrites) {
    platform.script({"Unknown row"});
    EXPECT_EQ(3, write("ab", 1, 2));
    EXPECT_RUN(written("a"));
    EXPECT_LOG();
    const int fixed = static_cast<int>(written("").size());
    const std::string x200(200, 'x');
    platform.script({"\n"});
    EXPECT_EQ(0, write(x200, 198 - fixed, 200));
    EXPECT_EQ(198U, std::exchange(platform.commands, {}).at(0).size());
    const unsigned long failures = client_failures();
    EXPECT_EQ(6, write(x200, 199 - fixed, 200)) << "does not fit the runner";
    EXPECT_EQ(1, write(x200, 200 - fixed, 200)) << "does not fit the buffer";
    EXPECT_EQ(6, write("eth0", 5, 4));
    EXPECT_EQ(6, write("eth0", -1, 4));
    EXPECT_EQ(failures + 4, client_failures());

    std::string refused, hostile;
    platform.client = [](const std::string&) { return "\n"; };
    for (int byte = 0; byte < 256; ++byte) {
        std::string value = std::string("a") + static_cast<char>(byte) + "b";
        const int status = write(value, 3, 3);
        EXPECT_EQ(status, config_string_access_by_id(access_set, value, "T", "C", 1)) << byte;
        EXPECT_EQ(status == 0 ? 2U : 0U, std::exchange(platform.commands, {}).size()) << byte;
        if (status == 6)
            refused += static_cast<char>(byte);
    }
    for (char c = 0; c < ' '; ++c)
        hostile += c;
    EXPECT_EQ(hostile + "\"$;\\`\x7f", refused);
}

/// Runs a function on a table. @return CORVANTA_UNFIT when it tells a failure
template <typename Function>
int onTable(const std::string& name, Function failed) {
    Table table(name);
    table.initialize(false);
    table.m_iRowCount = 0;
    return failed(table) ? 6 : 0;
}

/// Calls everything that takes texts, each with the text at one of the places.
void callEach(const std::string& text, const std::function<void(int)>& afterwards) {
    int value = 1, length = 1;
    char buffer[20] = "x";
    const char* const t = text.c_str();
    afterwards(config_int_access_by_id(access_get, &value, t, "C", 1));
    afterwards(config_int_access_by_id(access_set, &value, "T", t, 1));
    afterwards(config_string_access_by_id(access_get, buffer, 20, &length, t, "C", 1));
    afterwards(config_string_access_by_id(access_set, buffer, 20, &length, "T", t, 1));
    afterwards(write(text, static_cast<int>(text.size()), 20));
    afterwards(config_row_read(t, 1, buffer, 20, &length));
    afterwards(onTable(text, [](Table& table) { return table.size() == 0; }));
    afterwards(onTable(text, [](Table& table) { return !table.readRow(0); }));
    for (const int place : {0, 1, 2, 3}) {
        const char* w[] = {"Atm", "Vpi", "Id", "3"};
        w[place] = t;
        afterwards(config_int_read_by_key(&value, w[0], w[1], w[2], w[3]));
        afterwards(onTable(w[0], [&](Table& table) {
            return table.getIntegerValue(value, w[1], w[2], w[3]) == 1;
        }));
    }
}

/// Whoever runs a command, a failure counts once. A text that ends a command, or is the value of
/// another column to the client, runs nothing.
TEST_F(ClientTest, FailuresCountAndHostileTextsRunNothing) {
    const struct {
        std::string text;
        Answer answer;
        bool runs = false;
    } cases[] = {{"t", locked, true},        {"t", "", true}, {"t", notStarted, true}, {"a;b", ""},
                 {"x Enable integer:1", ""}, {" text:", ""}};
    unsigned long failures = client_failures();
    for (const auto& c : cases) {
        platform.client = [&](const std::string&) { return c.answer; };
        callEach(c.text, [&](int status) {
            EXPECT_TRUE(c.runs || status == 6) << c.text;
            EXPECT_EQ(c.runs, !platform.commands.empty()) << c.text;
            EXPECT_EQ(++failures, client_failures()) << c.text;
            platform.commands.clear();
        });
    }
    platform.client = [](const std::string&) { return "\n"; };
    for (const std::string good : {"integer:1", "text:x y", "a  bcontext:", "x -integer:"})
        EXPECT_EQ(0, write(good, static_cast<int>(good.size()), 20)) << good;
}

TEST_F(ClientTest, StringsAndAccessTypes) {
    const std::string x18(18, 'x'), x19(19, 'x');
    std::string value = "old";
    const auto access = [&](int kind) {
        return config_string_access_by_id(access_type(kind), value, "VLAN", "ParentIf", 2);
    };
    platform.script({x18 + "\n", x19 + "\n", "\n"});
    EXPECT_EQ(0, access(access_get));
    EXPECT_EQ(6, access(access_get));
    EXPECT_EQ(x18, value);
    EXPECT_EQ(0, access(access_set));
    EXPECT_EQ(quorlet(" updatekey VLAN Id 2 ParentIf text:" + x18 + " ;"), platform.commands.at(2));
    value = x19;
    for (const auto& [kind, status] : {std::pair(2, 6), {0, 1}, {3, 1}, {4, 1}, {5, 1}, {-1, 1}})
        EXPECT_EQ(status, access(kind)) << kind;
    EXPECT_EQ(x19, value);
}

} // namespace
