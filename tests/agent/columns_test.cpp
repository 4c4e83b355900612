// What becomes of single columns and rows when a change is taken back, case by case.

#include "RowsDatabase.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

using namespace agent;

namespace {

int restore(RowsDatabase& database, Record record) {
    Image image;
    return takeBack(record, image, database).value_or(-1);
}

/// Runs commands, those of the change and, with a >, those of others.
void play(RowsDatabase& database, Record& record, const std::string& deeds) {
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
} kCases[] = {
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
    for (const auto& [deeds, question, answer, leftAlone] : kCases) {
        RowsDatabase database;
        Record record;
        database.rows[Table::vlan].push_back({{"1", "0", "eth0.1", "wan1"}});
        play(database, record, std::string(kBridge) + deeds);
        database.journal = toText({true, record});
        EXPECT_EQ(leftAlone, restore(database, record)) << deeds;
        EXPECT_EQ(answer, run(database.rows, question)) << deeds;
    }
}

TEST(ColumnsTest, ComeBackToABridgeThatOthersChangeMeanwhile) {
    RowsDatabase database;
    Record record;
    play(database, record,
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
    play(database, none,
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

} // namespace
