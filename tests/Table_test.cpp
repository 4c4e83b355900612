#include "tests/Platform.h"

#include "readers/Table.h"

#include <stdexcept>

using kavo::snmp::Table;

namespace {

class TableTest : public PlatformTest {
protected:
    TableTest() { table.initialize(false); }
    Table table{"Atm"};
};

const std::string popenError = "error:Wrapper: popen error";
const std::string size = "quorlet \"size Atm;\"", row2 = "quorlet \"selectrow Atm 2;\"";

TEST_F(TableTest, CountsRows) {
    const struct {
        const char* answer;
        int rows;
    } cases[] = {{"3\n", 3},          {"0x10", 16}, {"0X1f\n", 31},         {"010", 8},
                 {"08", 0},           {" 7 x", 7},  {"Database locked", 0}, {"\n", 0},
                 {"4294967295\n", -1}};
    for (const auto& c : cases) {
        platform.script({c.answer});
        EXPECT_EQ(c.rows, table.size()) << c.answer;
        EXPECT_EQ(c.rows, table.m_iRowCount);
        EXPECT_EQ(Lines{size}, platform.takeCommands());
    }
    EXPECT_EQ(Lines{}, platform.takeLog());

    table.m_iRowCount = 5;
    platform.script({notStarted, "", Answer("", Answer::Fault::read)});
    for (int times = 0; times < 3; ++times) {
        EXPECT_EQ(0, table.size());
        EXPECT_EQ(5, table.m_iRowCount) << "a failed count leaves it";
    }
    const std::string unread = "error:Table: size: could not read programs output " + size;
    EXPECT_EQ((Lines{popenError, "error:Table: size: could not popen " + size, unread,
                     "error:Wrapper: fgets error", unread}),
              platform.takeLog());
}

TEST_F(TableTest, RefreshesTheCountForRowsBelowIt) {
    const Lines onlyRow = {row2}, both = {size, row2};
    const struct {
        int known;
        std::deque<Answer> answers;
        Lines commands;
        int count;
    } cases[] = {{-1, {"4\n", "a|b\n"}, both, 4},   {3, {"9\n", "a|b\n"}, both, 9},
                 {2, {"a|b\n"}, onlyRow, 2},        {0, {"a|b\n"}, onlyRow, 0},
                 {3, {"", "a|b\n"}, both, 0},       {-1, {notStarted, "a|b\n"}, both, 0},
                 {2, {"Unknown row\n"}, onlyRow, 2}};
    for (const auto& c : cases) {
        table.m_iRowCount = c.known;
        platform.script(c.answers);
        EXPECT_TRUE(table.readRow(2));
        EXPECT_EQ(c.commands, platform.takeCommands());
        EXPECT_EQ(c.count, table.m_iRowCount);
        EXPECT_EQ(c.answers.back().text, table.m_szLine);
    }
    platform.takeLog();
    platform.script({notStarted, ""});
    EXPECT_FALSE(table.readRow(2));
    EXPECT_FALSE(table.readRow(2));
    EXPECT_EQ((Lines{popenError, "error:Table: read: could not popen " + row2,
                     "error:Table: read: could not read programs output " + row2}),
              platform.takeLog());
}

TEST_F(TableTest, TakesTheVpiFromTheThirdField) {
    const struct {
        std::string row;
        const char* column;
        int vpi;
    } cases[] = {{"1|1|8|35\n", "Vpi", 8},
                 {"1|1|8|35\n", "VPI", 8},
                 {"1||8|35\n", "vpi", 35},
                 {"1|1|-8x\n", "Vpi", -8},
                 {"1|1| 010\n", "Vpi", 10},
                 {"a|b|c\n", "Vpi", 0},
                 {"1|1|\n", "Vpi", 0},
                 {"1|1|99999999999|2\n", "Vpi", 0},
                 {std::string(250, 'x') + "|1|45\n", "Vpi", 45}};
    table.m_iRowCount = 0;
    for (const auto& c : cases) {
        platform.script({c.row});
        EXPECT_EQ(c.vpi, table.getIntegerValue(c.column, 0)) << c.row;
    }
    for (const std::string& row : {std::string("8\n"), std::string("1|2"), std::string("||1||\n"),
                                  std::string("\n"), std::string(252, 'x') + "|1|8\n"}) {
        platform.script({row});
        EXPECT_THROW(table.getIntegerValue("Vpi", 0), std::out_of_range) << row;
    }
    EXPECT_EQ(Lines{}, platform.takeLog());

    Table bridge("Bridge"), lower("atm");
    bridge.initialize(false);
    lower.initialize(false);
    bridge.m_iRowCount = lower.m_iRowCount = 0;
    platform.script({"1|2|3\n", "1|2|3\n", "1|2|3\n", ""});
    EXPECT_EQ(3, lower.getIntegerValue("Vpi", 0));
    EXPECT_EQ(0, bridge.getIntegerValue("Vpi", 0));
    EXPECT_EQ(0, table.getIntegerValue("Vci", 0));
    EXPECT_EQ(0, table.getIntegerValue("Vci", 2));
    EXPECT_EQ((Lines{"warning:Table: getIntegerValue: unsupported table Bridge",
                     "warning:Table: getIntegerValue: unsupported column Vci in table Atm",
                     "error:Table: read: could not read programs output " + row2,
                     "warning:Table: read: could not read row 2 from table Atm"}),
              platform.takeLog());
}

TEST_F(TableTest, ReadsByKey) {
    const struct {
        Answer answer;
        int status, value;
    } cases[] = {{"42\n", 0, 42},      {" -7 9\n8\n", 0, -7},        {"010", 0, 10},
                 {"12abc", 0, 12},     {"Unknown row\n", 1, 5},      {"\n3\n", 1, 5},
                 {"", 1, 5},           {notStarted, 1, 5},           {"-99999999999", 1, 5},
                 {"2147483648", 1, 5}, {"2147483647", 0, 2147483647}};
    for (const auto& c : cases) {
        platform.script({c.answer});
        int value = 5;
        EXPECT_EQ(c.status, table.getIntegerValue(value, "Vpi", "Id", "3")) << c.answer.text;
        EXPECT_EQ(c.value, value) << c.answer.text;
        EXPECT_EQ(Lines{" quorlet \" selectkey Atm Id 3 Vpi ; \" "}, platform.takeCommands());
    }
    EXPECT_EQ(Lines{popenError}, platform.takeLog());
}

} // namespace
