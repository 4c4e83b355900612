// Changes on trial, and the journal that takes them back after the agent has gone: on the stand-in
// device, with the agent by itself and as a subagent of a real snmpd.

#include "tests/agent/site/Site.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <iterator>
#include <vector>

namespace {

/// What is done, and what comes of it.
struct Step {
    const char* action; ///< a set's objects with types and values, an object that is read, or:
                        ///< "until OBJECT", "sql STATEMENT", "restart"
    const char* result; ///< an error, a value, rows
};

struct Scenario {
    const char* name;
    std::vector<Step> steps;
};

#define IDLE "INTEGER: 1"
#define PENDING "INTEGER: 2"

const std::string kQuiet = "-i 3600 -a 604800"; ///< no refresh between two sets

// clang-format off
const Scenario kScenarios[] = {
    {"nothing is pending", {
        {"8.4.0", IDLE},
        {"8.3.0", "INTEGER: 1"},
        {"8.3.0 i 2", "inconsistentValue"},
        {"8.3.0 i 3", "inconsistentValue"},
        {"8.3.0 i 4", "wrongValue"},
        {"8.1.0 u 86401", "wrongValue"},
        {"8.1.0 u 60", "inconsistentValue"},
        {"8.1.0 u 0", ""},
        {"8.2.0 u 1", "notWritable"},
        {"8.4.0", IDLE},
    }},
    {"expires", {
        {"3.1.0 s wan2 6.1.5.1 i 77 8.1.0 u 600", ""},
        {"8.4.0", PENDING},
        {"8.1.0", "Gauge32: 600"},
        {"3.1.0", "STRING: \"wan2\""},
        {"8.1.0 u 2", ""},
        {"until 8.4.0", IDLE},
        {"8.1.0", "Gauge32: 0"},
        {"8.2.0", "Gauge32: 0"},
        {"3.1.0", "\"\""},
    }},
    {"is reverted, with another manager's part", {
        {"7.1.4.1 s wan2 7.1.2.1 i 1 8.1.0 u 600", ""},
        {"3.1.0 s wan2", "resourceUnavailable"},
        {"3.1.0 s wan2 8.1.0 u 0", "resourceUnavailable"},
        {"8.3.0 i 2 6.1.5.1 i 77", "inconsistentValue"},
        {"3.1.0 s wan2 8.1.0 u 500", ""},
        {"8.1.0", "Gauge32: 500"},
        {"7.1.2.1", "INTEGER: 2"}, // switched off by the default bridge
        {"8.3.0 i 1", ""},
        {"8.3.0 i 3", ""},
        {"8.4.0", IDLE},
    }},
    {"is reverted at the start after a stop", {
        {"6.1.2.4 i 1 3.1.0 s wan4 8.1.0 u 600", ""},
        {"restart", ""},
    }},
    {"fails in part, when no bridge is free any more", {
        {"sql INSERT INTO Bridge (Name) VALUES ('br1'), ('br2'), ('br3'), ('br4'), ('br5'), ('br6'), ('br7'), ('br8')", ""},
        {"6.1.5.1 i 77 6.1.5.1 i 78 7.1.3.1 i 1 7.1.2.1 i 1", "commitFailed"},
        {"6.1.5.1", "INTEGER: 32"},
        {"sql SELECT Vci FROM Atm WHERE Id=1; SELECT Enable FROM VLAN WHERE Id<=2", "32\n0\n1\n"},
        {"sql DELETE FROM Bridge", ""},
    }},
};
// clang-format on

std::string act(Site& site, const std::string& action, const std::string& result,
                const std::function<void()>& restart) {
    const std::size_t blank = action.find(' ');
    const std::string word = action.substr(0, blank);
    const std::string rest = blank == action.npos ? "" : action.substr(blank + 1);
    if (word == "sql")
        return site.sql(rest);
    if (word == "until") {
        soon([&] { return site.get(rest) == result; });
        return site.get(rest);
    }
    if (word == "restart") {
        restart();
        return soon([&] { return site.get("8.4.0") == IDLE; }) ? "" : "never";
    }
    return rest.empty() ? site.get(word) : site.request(action);
}

void play(Site& site, std::size_t scenarios, const std::function<void()>& restart) {
    const std::string factory = site.sql(".dump");
    for (const Scenario* scenario = kScenarios; scenario != kScenarios + scenarios; ++scenario) {
        SCOPED_TRACE(scenario->name);
        for (const auto& [action, result] : scenario->steps)
            EXPECT_EQ(result, act(site, action, result, restart)) << action;
        EXPECT_EQ(factory, site.sql(".dump"));
        EXPECT_FALSE(site.has("state/dev/change.journal"));
    }
}

TEST(Trial, IsTakenBackUnlessItIsConfirmed) {
    Site site(kQuiet);
    play(site, std::size(kScenarios), [&] {
        site.agent->end(SIGTERM);
        site.startAlone(kQuiet);
    });
}

TEST(Trial, IsTakenBackByASubagent) {
    Subagent site;
    play(site, 2, {}); // what takes back is the same process
}

TEST(Journal, IsNotObeyedWhenItIsDamaged) {
    Site site(kQuiet);
    const std::string before = site.sql(".dump");
    EXPECT_EQ("", site.request("3.1.0 s wan2 8.1.0 u 600"));
    const std::string after = site.sql(".dump");
    site.agent->end(SIGKILL);
    const std::string journal = site.run("cat state/dev/change.journal");
    ASSERT_GT(journal.size(), 100U);
    std::string flipped = journal;
    flipped[50] ^= 1;
    // The last one is whole, but of a version that is yet to come.
    for (const std::string& text :
         {flipped,
          site.run("sed '$d; 1s/2$/3/' state/dev/change.journal | tee next; echo end $(gzip -c "
                   "next | tail -c 8 | head -c 4 | od -An -tx4)")}) {
        site.run("rm -f state/dev/*.damaged");
        site.write("state/dev/change.journal", text);
        site.startAlone(kQuiet);
        EXPECT_EQ("Counter32: 1", site.get("1.6.0")) << text;
        EXPECT_EQ(IDLE, site.get("8.4.0")) << text;
        EXPECT_EQ(text, site.run("cat state/dev/change.journal.damaged"));
        EXPECT_FALSE(site.has("state/dev/change.journal")) << text;
        EXPECT_EQ(0, site.agent->end(SIGTERM)) << text;
        EXPECT_EQ(after, site.sql(".dump")) << text;
    }
    // As it was it is obeyed, where earlier versions had it too.
    site.write("state/change.journal", journal);
    site.run("mkdir -p state/new/one state/net/new/other state/dev/change.journal/in/the/way");
    site.startAlone(kQuiet);
    EXPECT_TRUE(soon([&] { return site.get("8.4.0") == IDLE; }));
    EXPECT_EQ("one\n", site.run("ls state/net/new; ls state | grep -e new -e change"));
    EXPECT_EQ(before, site.sql(".dump"));
}

} // namespace
