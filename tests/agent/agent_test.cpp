// The agent on the stand-in device, asked by the stock SNMP tools: as an agent of its own, and as a
// subagent of a real snmpd with the configuration that is shipped for it. All is on loopback, in a
// temporary folder.

#include "tests/agent/site/Site.h"

#include <gtest/gtest.h>

#include <csignal>
#include <iterator>
#include <sstream>
#include <utility>

namespace {

// clang-format off
/// The tree that the device has with its factory settings: columns without the row, the first row,
/// and the rows' types and values.
const char* const kTree[][4] = {
    {"1.1", "0", "Counter32", "1"},
    {"1.2", "0", "Counter32", "0"},
    {"1.4", "0", "Counter32", "0"},
    {"1.5", "0", "Counter32", "0"},
    {"1.6", "0", "Counter32", "0"},
    {"1.7", "0", "Counter32", "0"},
    {"2.1", "0", "Gauge32", "5696"},
    {"2.2", "0", "Gauge32", "1024"},
    {"2.3", "0", "Gauge32", "6144"},
    {"2.4", "0", "Gauge32", "1280"},
    {"3.1", "0", "", "\"\""},
    {"3.2", "0", "INTEGER", "2"},
    {"4.1.2", "1", "STRING", "VC1 PPPoE1 VC2 PPPoE2 VC3 DHCP3 VC4 VC5 VC6 VC7 VC8"},
    {"4.1.3", "1", "INTEGER", "1 1 1 1 1 1 2 2 2 2 1"},
    {"5.1.2", "0", "STRING", "n/a lo eth0 wlan1 wds0 wds1 wds2 wds3 wan1 wan2 wan3 ppp1 ppp2 ppp3"},
    {"5.1.3", "0", "STRING", "N/A LOOPBACK LAN WLAN1 WDS0 WDS1 WDS2 WDS3 VC1 VC2 VC3 PPPoE1 PPPoE2 DHCP3"},
    {"6.1.2", "1", "INTEGER", "1 1 1 2 2 2 2 1"},
    {"6.1.3", "1", "STRING", "atm1 atm2 atm3 atm4 atm5 atm6 atm7 atm8"},
    {"6.1.4", "1", "INTEGER", "1 2 3 4 5 6 7 8"},
    {"6.1.5", "1", "INTEGER", "32 32 32 32 32 32 32 35"},
    {"6.1.6", "1", "INTEGER", "2 2 2 2 2 2 2 1"},
    {"7.1.2", "1", "INTEGER", "2 2 2 2 2 2 2 2"},
    {"7.1.3", "1", "INTEGER", "2 2 2 2 2 2 2 2"},
    {"7.1.4", "1", "STRING", "wan1 wan1 wan1 wan1 wan1 wan1 wan1 wan1"},
    {"8.1", "0", "Gauge32", "0"},
    {"8.2", "0", "Gauge32", "0"},
    {"8.3", "0", "INTEGER", "1"},
    {"8.4", "0", "INTEGER", "1"},
};

/// A set of each writable object, there and back, and what the database holds in between.
const char* const kWrites[][5] = {
    {"3.1.0", "s wan2", "s ''", "SELECT Interface FROM BridgeInterface", "eth0\nwan2\n"},
    {"3.2.0", "i 1", "i 2", "SELECT DiscardUntaggedFrames FROM VLANSingleParams", "1\n"},
    {"6.1.2.4", "i 1", "i 2", "SELECT ParentInterface FROM NetworkSetupNode WHERE InterfaceName='wan4'", "SHDSL\n"},
    {"6.1.4.8", "i 255", "i 8", "SELECT Vpi FROM Atm WHERE Id=8", "255\n"},
    {"6.1.5.1", "i 65535", "i 32", "SELECT Vci FROM Atm WHERE Id=1", "65535\n"},
    {"7.1.2.8", "i 1", "i 2", "SELECT Interface FROM BridgeInterface", "eth0.108\nwan1.108\n"},
    {"7.1.3.1", "i 1", "i 2", "SELECT Enable FROM VLAN WHERE Id=2", "0\n"},
    {"7.1.4.3", "s wan3", "s wan1", "SELECT ParentIf FROM VLAN WHERE Id=6", "wan3\n"},
};
// clang-format on

/// Every object in order, by each kind of request, then every writable one there and back.
void checkTree(Site& site) {
    std::string tree;     // as a walk prints it
    std::string names[2]; // in two requests: the tool takes 128 names at most
    for (const auto& [object, firstRow, type, text] : kTree) {
        std::istringstream values(text);
        int row = std::stoi(firstRow);
        for (std::string value; values >> value; ++row) {
            const std::string name = Site::oid(object) + "." + std::to_string(row);
            const std::string quote = type == std::string("STRING") ? "\"" : "";
            tree.append(name).append(" = ").append(type).append(*type ? ": " : "");
            tree.append(quote).append(value).append(quote).append("\n");
            names[tree.size() > 4000] += name + " ";
        }
    }
    const std::string all = ROOT_OID " | grep -v -e '1.1.1.3.0 =' -e 'No more variables'"; // no age
    EXPECT_EQ(tree, site.tool("snmpwalk", all));
    EXPECT_EQ(tree, site.tool("snmpbulkwalk", all));
    EXPECT_EQ(tree, site.tool("snmpget", names[0]) + site.tool("snmpget", names[1]));
    for (const auto& [object, value, undo, query, rows] : kWrites) {
        const std::string before = site.get(object);
        EXPECT_EQ("", site.set(object, value)) << object;
        EXPECT_NE(before, site.get(object)) << object;
        EXPECT_EQ(rows, site.sql(query)) << object;
        EXPECT_EQ("", site.set(object, undo)) << object;
        EXPECT_EQ(before, site.get(object)) << object;
    }
    EXPECT_FALSE(site.has("sockets")); // no client has inherited any
}

TEST(Agent, ServesTheTreeAlone) {
    Site site;
    site.address = "tcp:" + site.address; // connections are not inherited either
    site.startAlone("-i 60");
    checkTree(site);
    EXPECT_EQ("No Such Instance currently exists at this OID", site.get("6.1.4.9"));
    EXPECT_EQ("No Such Object available on this agent at this OID", site.get("6.1.1.1"));
    // What it is, and all that it has, in one answer.
    const std::string said = site.tool("snmpget", ".1.3.6.1.2.1.1.1.0 .1.3.6.1.2.1.1.2.0");
    EXPECT_NE(std::string::npos, said.find(" = STRING: \"corvantad ")) << said;
    EXPECT_NE(std::string::npos, said.find(" = OID: " ROOT_OID ".3\n")) << said;
    const std::string all = site.tool("snmpbulkget -Cr200", ROOT_OID);
    EXPECT_NE(std::string::npos, all.find(Site::oid("8.4.0"))) << all;
    // No SMUX port.
    EXPECT_EQ(std::string::npos, site.run("cat /proc/net/tcp /proc/net/tcp6").find(":00C7 00"));
}

TEST(Agent, ServesTheTreeAsASubagent) {
    Subagent site;
    checkTree(site);

    // Access: who asks, with which request, and what must come of it.
    const std::string reader = kUser + "Reader -l ";
    const std::string own = site.manager;
    const std::string rules[][4] = {
        {reader + "authNoPriv", "snmpget", "3.2.0", "INTEGER: 2"},
        {reader + "authPriv", "snmpset", "3.2.0 i 2", "noAccess"},
        {reader + "noAuthNoPriv", "snmpget", "3.2.0", "authorizationError"},
        {kUser + "Operator -l authNoPriv", "snmpget", "3.2.0", "INTEGER: 2"},
        {kUser + "Operator -l authNoPriv", "snmpset", "3.2.0 i 2", "noAccess"},
        {own, "snmpset", "3.2.0 i 2", "INTEGER: 2"},
        {reader + "authNoPriv", "snmpget", "1 .1.3.6.1.2.1.1.3.0", "1.3.0 = Timeticks"},
        {own, "snmpget", "1 .1.3.6.1.2.1.1.4.0", "1.4.0 = No Such Object"},
        {own, "snmpset", "3.2.0 i 2 .1.3.6.1.2.1.1.5.0 s x", "noAccess"},
        {kUser + "Stranger -l authPriv", "snmpget", "3.2.0", "authorizationError"},
        {kUser + "Nobody -l authPriv", "snmpget", "3.2.0", "Unknown user name"},
        {"-v2c -c public", "snmpget", "3.2.0", "Timeout"},
    };
    for (const auto& [manager, command, arguments, answer] : rules) {
        site.manager = manager;
        site.patience = answer == std::string("Timeout") ? "1" : kLong;
        EXPECT_NE(std::string::npos, site.tool(command, Site::oid(arguments)).find(answer))
            << manager << " " << command << " " << arguments;
    }
}

TEST(Agent, RefusesWhatDoesNotFitAndChangesNothing) {
    Site site("-i 1");
    const std::string sets[][3] = {
        {"7.1.2.1", "s x", "wrongType"},
        {"7.1.4.1", "i 1", "wrongType"},
        {"3.1.0", "x 00", "wrongValue"},
        {"7.1.2.1", "i 3", "wrongValue"},
        {"6.1.2.1", "i 0", "wrongValue"},
        {"6.1.4.1", "i -1", "wrongValue"},
        {"6.1.4.1", "i 256", "wrongValue"},
        {"6.1.5.1", "i 65536", "wrongValue"},
        {"7.1.4.1", "s 12345678901234", "wrongLength"},
        {"7.1.2.9", "i 1", "noCreation"},
        {"6.1.4.1.1", "i 1", "noCreation"},
        {"6.1.1.1", "i 1", "notWritable"},
        {"1.4.0", "u 1", "notWritable"},
        // A text that would mean something to a shell.
        {"3.1.0", "s '\\\";touch hit'", "wrongValue"},
        // The first would be made, but not without the second.
        {"6.1.5.1", "i 99 " + Site::oid("6.1.5.9") + " i 99", "noCreation"},
    };
    const std::string before = site.sql(".dump");
    for (const auto& [object, value, error] : sets)
        EXPECT_EQ(error, site.set(object, value)) << object << value;
    // Of a blank, a line's end and \";$`\\|, each is refused, and what is no ASCII.
    const auto hostile = {"20", "0a", "22", "3b", "24", "60", "5c", "7c", "e9"};
    for (const std::string character : hostile)
        EXPECT_EQ("wrongValue", site.set("7.1.4.1", "x 61" + character + "62")) << character;
    const std::size_t refused = std::size(sets) + hostile.size();
    EXPECT_EQ(before, site.sql(".dump"));
    EXPECT_FALSE(site.has("hit"));
    EXPECT_EQ("Counter32: " + std::to_string(refused), site.get("1.4.0"));
    // What a shell would take for more than a word, but a text may hold; as long as one may be.
    EXPECT_EQ("", site.set("7.1.4.1", "s \"*'&<>()!12345\""));
    EXPECT_EQ("*'&<>()!12345\n", site.sql("SELECT ParentIf FROM VLAN WHERE Id=2"));
    EXPECT_EQ("", site.set("7.1.4.1", "s ''"));
}

TEST(Agent, ShowsAWalkOneSnapshot) {
    Site site("-i 1");
    const auto next = [&] { return site.tool("snmpgetnext", Site::oid("6.1.5")); };
    const std::string before = next();
    auto asked = Clock::now();
    site.sql("UPDATE Atm SET Vci=99");
    for (int step = 0; step < 6; ++step, pause(300)) {
        const auto last = std::exchange(asked, Clock::now());
        const std::string value = next();
        if (msSince(last) >= 1000) // by now, the walk has paused
            break;
        EXPECT_EQ(before, value);
    }
    EXPECT_TRUE(soon([&] { return pause(1200), next() != before; }));
}

TEST(Agent, ServesNoOldValuesAndCountsClientsThatHang) {
    Site site("-i 1 -a 3 -l 5");
    site.write("silent", "");
    EXPECT_TRUE(soon([&] { return site.get("6.1.5.1").empty(); }));
    EXPECT_EQ("(genError)", site.set("6.1.5.1", "i 77"));
    EXPECT_NE(std::string::npos, site.tool("snmpgetnext", Site::oid("6.1.2")).find("genError"));
    EXPECT_NE("Counter32: 0", site.get("1.2.0"));
    EXPECT_NE(std::string::npos,
              site.tool("snmpgetnext", Site::oid("1.2.0")).find("1.3.0 = Gauge32: "));
    fs::remove(site.folder / "silent");
    EXPECT_TRUE(soon([&] { return site.get("6.1.5.1") == "INTEGER: 32"; }));
    EXPECT_LT(site.logged(), 8) << site.run("cat agent.log");
    site.write("stall", "");
    EXPECT_TRUE(soon([&] { return site.get("1.5.0") != "Counter32: 0"; }));
}

TEST(Agent, NamesMistakesInItsOptions) {
    const std::string seconds = " is not a number of seconds from 1 to 604800";
    const std::pair<std::string, std::string> cases[] = {
        {"--nowhere", "'--nowhere'"},
        {"-y", "'-y'"},
        {"--state ''", "an empty argument"},
        {"--interval", "'--interval'"},
        {"again", "unexpected argument 'again'"},
        {"--interval 0", "'0'" + seconds},
        {"--set-deadline 5s", "'5s'" + seconds},
        {"--max-age 604801", "'604801'" + seconds},
        {"--interval 60 --max-age 60", "--max-age must be longer than --interval"},
        {"--agentx /nowhere/a --master unix:/nowhere/b", "--agentx and --master exclude"},
        {"--config /nowhere/conf", "cannot read /nowhere/conf"}};
    for (const auto& [options, said] : cases) {
        // In the foreground and not for long, if it goes on.
        const std::string all =
            output(".", "timeout 60 " CORVANTAD " -f " + options + " 2>&1; echo status $?");
        EXPECT_NE(std::string::npos, all.find(said)) << options << ": " << all;
        EXPECT_NE(std::string::npos, all.find("\nTry 'corvantad --help'.\nstatus 2\n")) << all;
    }
}

TEST(Mib, IsCleanAndFitsTheAgent) {
    Site site("-i 60");
    EXPECT_EQ("", site.run("SMIPATH=" SMI " smilint -m -s -l 6 -i namelength-32 " MIB));
    site.environment = "";
    const std::string walk =
        site.run("snmpwalk -v2c -c test -m " MIB " -M " SMI " " + site.address + " " ROOT_OID);
    EXPECT_NE(walk.npos, walk.find("CORVANTA-MIB::cvVlanEnabled.8 = INTEGER: false(2)")) << walk;
    EXPECT_EQ(walk.npos, walk.find("Wrong Type")) << walk;
    EXPECT_EQ(walk.npos, walk.find("corvantaObjects.")) << walk; // an object that the module lacks
}

} // namespace
