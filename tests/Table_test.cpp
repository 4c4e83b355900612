#include "tests/Platform.h"

#include "readers/Table.h"

#include <stdexcept>

using kavo::snmp::Table;

namespace {

class TableTest : public PlatformTest {
protected:
    TableTest() { EXPECT_TRUE(table.initialize(false) && table.m_bInitalized); }

    Table table{"Atm"};
    const std::string size = "quorlet \"size Atm;\"", row2 = "quorlet \"selectrow Atm 2;\"",
                      popenError = "error:Wrapper: popen error", error = "error:Table: ";
};

TEST_F(TableTest, CountsRows) {
    const std::pair<const char*, int> counts[] = {
        {"3\n", 3},   {"0x10", 16},         {"0X1f\n", 31},         {"010", 8},
        {"08", 0},    {" 7 x", 7},          {"Database locked", 0}, {"4294967295\n", -1},
        {"-2\n", -2}, {"99999999999\n", -1}};
    for (const auto& [answer, rows] : counts) {
        platform.script({answer});
        EXPECT_EQ(rows, table.size()) << answer;
        EXPECT_EQ(rows, table.m_iRowCount);
        EXPECT_RUN(size);
    }
    EXPECT_LOG();
    for (std::size_t length = 100; length < 130; ++length) {
        platform.script({"3\n"});
        Table named(std::string(length, 'x'));
        named.initialize(false);
        EXPECT_EQ(3, named.size());
        EXPECT_RUN("quorlet \"size " + named.m_sTableName + ";\"");
    }
    table.m_iRowCount = 5;
    platform.script({notStarted, "", Answer("", Answer::Fault::read)});
    for (int times = 0; times < 3; ++times) {
        EXPECT_EQ(0, table.size());
        EXPECT_EQ(5, table.m_iRowCount) << "a failed count leaves it";
    }
    const std::string unread = error + "size: could not read programs output " + size;
    EXPECT_LOG(popenError, error + "size: could not popen " + size, unread,
               "error:Wrapper: fgets error", unread);
}

TEST_F(TableTest, RefreshesTheCountForRowsBelowIt) {
    const struct {
        int known;
        std::deque<Answer> answers;
        bool refreshes;
        int count;
    } cases[] = {{-1, {"4\n", "a|b\n"}, true, 4}, {3, {"9\n", "a|b\n"}, true, 9},
                 {2, {"a|b\n"}, false, 2},        {0, {"a|b\n"}, false, 0},
                 {3, {"", "a|b\n"}, true, 0},     {-1, {notStarted, "a|b\n"}, true, 0},
                 {2, {"Unknown row\n"}, false, 2}};
    for (const auto& c : cases) {
        table.m_iRowCount = c.known;
        platform.script(c.answers);
        EXPECT_TRUE(table.readRow(2));
        EXPECT_EQ(c.refreshes ? (Lines{size, row2}) : Lines{row2},
                  std::exchange(platform.commands, {}));
        EXPECT_EQ(c.count, table.m_iRowCount);
        EXPECT_EQ(c.answers.back().text, table.m_szLine);
    }
    platform.takeLog();
    platform.script({notStarted, ""});
    EXPECT_FALSE(table.readRow(2) || table.readRow(2));
    EXPECT_LOG(popenError, error + "read: could not popen " + row2,
               error + "read: could not read programs output " + row2);
}

TEST_F(TableTest, TakesTheVpiFromTheThirdField) {
    table.m_iRowCount = 0;
    const std::string x250(250, 'x'); // a line is cut after 255 characters
    const struct {
        std::string row;
        const char* column;
        int vpi;
    } rows[] = {{"1|1|8|35\n", "Vpi", 8},
                {"1|1|8\n", "VPI", 8},
                {"1||8|35\n", "vpi", 35},
                {"1|1|-8x\n", "Vpi", -8},
                {"1|1| 010\n", "Vpi", 10},
                {"a|b|c\n", "Vpi", 0},
                {"1|1|99999999999|2\n", "Vpi", INT_MAX},
                {"1|1|-2147483649\n", "Vpi", INT_MIN},
                {x250 + "|1|45\n", "Vpi", 45}};
    for (const auto& [row, column, vpi] : rows) {
        platform.script({row});
        EXPECT_EQ(vpi, table.getIntegerValue(column, 0)) << row;
    }
    for (const std::string& row :
         {std::string("8\n"), std::string("||1||\n"), std::string("\n"), x250 + "xx|1|8\n"}) {
        platform.script({row});
        EXPECT_THROW(table.getIntegerValue("Vpi", 0), std::out_of_range) << row;
    }
    EXPECT_LOG();

    Table bridge("Bridge"), lower("atm");
    bridge.initialize(false);
    lower.initialize(false);
    bridge.m_iRowCount = lower.m_iRowCount = 0;
    platform.script({"1|2|3\n", "1|2|3\n", "1|2|3\n", ""});
    EXPECT_EQ(3, lower.getIntegerValue("Vpi", 0));
    EXPECT_EQ(0, bridge.getIntegerValue("Vpi", 0));
    EXPECT_EQ(0, table.getIntegerValue("Vci", 0));
    EXPECT_EQ(0, table.getIntegerValue("Vci", 2));
    const std::string warning = "warning:Table: ";
    EXPECT_LOG(warning + "getIntegerValue: unsupported table Bridge",
               warning + "getIntegerValue: unsupported column Vci in table Atm",
               error + "read: could not read programs output " + row2,
               warning + "read: could not read row 2 from table Atm");
}

TEST_F(TableTest, ReadsByKey) {
    const struct {
        Answer answer;
        int status, value;
    } cases[] = {{" -7 9\n8\n", 0, -7},
                 {"010", 0, 10},
                 {"12abc", 0, 12},
                 {"\n3\n", 1, 5},
                 {"", 1, 5},
                 {notStarted, 1, 5},
                 {"-99999999999", 1, 5},
                 {"2147483648", 1, 5},
                 {"2147483647", 0, INT_MAX},
                 {"-2147483648", 0, INT_MIN}};
    for (const auto& c : cases) {
        platform.script({c.answer});
        int value = 5;
        EXPECT_EQ(c.status, table.getIntegerValue(value, "Vpi", "Id", "3")) << c.answer.text;
        EXPECT_EQ(c.value, value) << c.answer.text;
        EXPECT_RUN(" quorlet \" selectkey Atm Id 3 Vpi ; \" ");
    }
    EXPECT_LOG(popenError);
}

} // namespace
