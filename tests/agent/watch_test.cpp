// What the agent sees without reading everything again: the file of the database, whatever happens
// to it.

#include "tests/agent/site/Site.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

namespace {

/// A device whose database is watched, and whose client runs are counted.
class WatchTest : public testing::Test {
protected:
    void start(const std::string& options = "-i 600 -a 6000") {
        site.write("runs", "");
        site.startAlone("-w device/config.db " + options);
        EXPECT_TRUE(soon([&] { return site.get("1.1.0") == "Counter32: 1"; }));
        settled();
    }

    /// Until no client has run for longer than the agent lets any change wait. @return the runs
    int settled() const {
        int before = -1;
        auto since = Clock::now();
        soon([&] {
            const int now = site.runs();
            if (now != before)
                since = Clock::now();
            before = now;
            return msSince(since) > 2500;
        });
        return before;
    }

    bool shows(const char* vci) const {
        return soon([&] { return site.get("6.1.5.1") == std::string("INTEGER: ") + vci; });
    }

    void change(const char* vci) const {
        site.run(ON_DEVICE " device quorlet 'updatekey Atm Id 1 Vci integer:" + std::string(vci) +
                 " ;'");
    }

    Site site;
};

TEST_F(WatchTest, CostsNoClientWhileNothingChanges) {
    start("-i 1");
    const int before = site.runs();
    EXPECT_TRUE(soon([&] { return std::stoi(site.get("1.1.0").substr(11)) > 4; }));
    EXPECT_EQ(before, site.runs());
    // An unchanged file is as good as read: the age does not just grow.
    EXPECT_TRUE(soon([&] { return std::stoi(site.get("1.3.0").substr(9)) < 3; }));
    // Everything after a while all the same.
    site.agent.reset();
    site.startAlone("-w device/config.db -i 1 --full-interval 2");
    const int restarted = site.runs();
    EXPECT_TRUE(soon([&] { return site.runs() >= restarted + 80; }));
}

TEST_F(WatchTest, SeesEachChangeOfTheDatabase) {
    start();
    change("41");
    EXPECT_TRUE(shows("41"));
    // Replaced, by a rename; gone, and back; with its folder.
    site.run("cp device/config.db new.db && sqlite3 new.db 'UPDATE Atm SET Vci=42 WHERE Id=1' && "
             "mv new.db device/config.db");
    EXPECT_TRUE(shows("42"));
    site.run("mv device/config.db away.db");
    EXPECT_TRUE(soon([&] { return site.run("grep -c 'cannot be watched' agent.log") == "1\n"; }));
    site.run("sqlite3 away.db 'UPDATE Atm SET Vci=43 WHERE Id=1' && mv away.db device/config.db");
    EXPECT_TRUE(shows("43"));
    site.run("mv device away && sqlite3 away/config.db 'UPDATE Atm SET Vci=44 WHERE Id=1'");
    EXPECT_TRUE(soon([&] { return site.run("grep -c 'cannot be watched' agent.log") == "2\n"; }));
    site.run("mv away device");
    EXPECT_TRUE(shows("44"));
    change("45"); // in the folder that came back
    EXPECT_TRUE(shows("45"));
    EXPECT_EQ("2\n", site.run("grep -c 'is watched again' agent.log"));
}

TEST_F(WatchTest, SeesChangesWithoutEvents) {
    site.write("none.c",
               "#include <errno.h>\n"
               "int inotify_init1(int flags) { (void)flags; errno = EMFILE; return -1; }\n");
    ASSERT_EQ("", site.run("cc -shared -fPIC none.c -o none.so"));
    site.environment += "LD_PRELOAD=$PWD/none.so ";
    start();
    change("41");
    EXPECT_TRUE(shows("41"));
    const int after = settled();
    EXPECT_EQ(after, settled());
}

TEST_F(WatchTest, ReadsAtTheIntervalWhatItCannotWatch) {
    site.startAlone("-w device/none/config.db -i 1");
    change("41");
    EXPECT_TRUE(shows("41"));
    EXPECT_EQ("1\n", site.run("grep -c 'cannot be watched' agent.log"));
    // It appears later, and is a link to the real one.
    site.run("mkdir device/none && ln -s ../config.db device/none/config.db");
    EXPECT_TRUE(soon([&] { return site.run("grep -c 'is watched again' agent.log") == "1\n"; }));
}

TEST_F(WatchTest, ReadsABurstOnce) {
    start();
    const int before = site.runs();
    const auto begin = Clock::now();
    // Thousands of changes a second that say nothing new.
    site.run("perl -e 'for (1 .. 20000) { utime undef, undef, \"device/config.db\" }'");
    const int seconds = msSince(begin) / 1000 + 1;
    EXPECT_LE(settled() - before, 41 * (seconds + 2));
    EXPECT_GE(site.runs() - before, 40);
    // And its own changes not at all, what it has read back left out.
    const int then = settled();
    EXPECT_EQ("", site.set("6.1.2.4", "i 1"));
    EXPECT_LT(settled() - then, 50);
    const std::string nodes =
        "awk 'NR > " + std::to_string(then) + "' runs | grep -c 'row NetworkSetupNode 0'";
    EXPECT_EQ("1\n", site.run(nodes));
}

} // namespace
