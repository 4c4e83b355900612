// A set is all or nothing: whatever fails while it is made or taken back, the device ends up as
// before the set or as after it, and the manager is never told the wrong one of the two. The
// simulation plays this in any order and number; here real processes, signals, files and locks have
// each fault once.

#include "tests/agent/site/Site.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <iterator>
#include <thread>
#include <vector>

namespace {

// clang-format off
#define SET "6.1.5.1 i 77 6.1.2.4 i 1 3.1.0 s wan2 7.1.2.1 i 1"
#define DO_IT "$real \"$@\""
#define DISK_FULL "strace -f --seccomp-bpf -qq -o trace.log -e trace=write -P $PWD/state/dev/change.journal.new -e inject=write:error=ENOSPC:when="

const char* const kTrial = SET " 8.1.0 u 600";

/// What the client does at the fifth command that writes, for its shell, while a request is made. The
/// change of another that comes first is to be taken back.
const struct Way {
    const char* name;
    const char* fault;
    const char* first = "";
    const char* request = SET;
    const char* options = "";
    const char* tracer = ""; ///< the agent's, which has the fault happen instead
} kWays[] = {
    {"client killed before its work", "kill -KILL $$"},
    {"client killed after its work", DO_IT " >/dev/null; kill -KILL $$"},
    {"answer empty", DO_IT " >/dev/null; exit"},
    {"answer cut short", DO_IT " | head -c 1; exit"},
    {"answer late", DO_IT "; (sleep 600; true) & sleep 600", "", SET, "-l 4"},
    {"database locked, for a while",
     "sqlite3 device/config.db 'BEGIN EXCLUSIVE' '.shell touch locked; until [ $(wc -l <writes) -gt 6 ]; do sleep 0.1; done'"
     " COMMIT >/dev/null 2>&1 & until [ -e locked ]; do sleep 0.1; done"},
    {"device's side killed", "kill -KILL $PPID"},
    {"device's side frozen", "kill -STOP $PPID"},
    {"network's side killed", "pkill -KILL -P $agent corvantad-net"},
    {"network's side frozen", "pkill -STOP -P $agent corvantad-net"},
    {"agent killed, client goes on", "kill -KILL $agent"},
    {"all killed after the client's work", DO_IT " >/dev/null; kill -KILL -$agent; exit"},
    {"agent stopped", "kill -TERM $agent"},
    {"agent stopped while the database stays locked",
     "export agent; setsid sqlite3 device/config.db 'BEGIN EXCLUSIVE' '.shell touch locked; kill -TERM $agent;"
     " while kill -0 $agent; do sleep 0.1; done' COMMIT >/dev/null 2>&1 & until [ -e locked ]; do sleep 0.1; done"},
    {"state folder gone", "mv state/dev away"},
    {"disk full", "", "", SET, "", DISK_FULL "1+ "},
    {"disk full once it is made", "", "", kTrial, "", DISK_FULL "2+ "},
    {"reverted, client killed before its work", "kill -KILL $$", kTrial, "8.3.0 i 3"},
    {"reverted, answer cut short", DO_IT " | head -c 1; exit", kTrial, "8.3.0 i 3"},
    {"reverted, device's side killed", "kill -KILL $PPID", kTrial, "8.3.0 i 3"},
    {"reverted, all killed after the client's work", DO_IT " >/dev/null; kill -KILL -$agent; exit", kTrial, "8.3.0 i 3"},
    {"expired, client killed after its work", DO_IT " >/dev/null; kill -KILL $$", kTrial, "8.1.0 u 1"},
};

/// The rows of all tables. Those that come back have other Ids.
const char* const kRows =
    "SELECT * FROM Atm; SELECT * FROM VLAN; SELECT * FROM VLANSingleParams; SELECT Name, Stp FROM Bridge ORDER BY 1;"
    "SELECT Name, Interface FROM BridgeInterface b LEFT JOIN Bridge ON Bridge.Id = BridgeId ORDER BY 1, b.Id;"
    "SELECT Type, InterfaceName, ParentInterface, Enable FROM NetworkSetupNode ORDER BY 2;"
    "SELECT Name FROM StatusNetifConfig ORDER BY 1";
// clang-format on

void attempt(const Way& way) {
    SCOPED_TRACE(way.name);
    const std::string options = std::string("-i 3600 -a 604800 ") + way.options;
    const bool isTakenBack = *way.first != '\0';
    Site site;
    site.environment += "WATCHDOG_USEC=24000000 "; // frozen for 12 s, a side is replaced
    site.tracer = way.tracer;
    site.startAlone(options);
    const std::string before = site.sql(kRows);
    if (isTakenBack) {
        EXPECT_EQ("", site.request(way.first));
    }
    if (*way.fault != '\0')
        site.write("fault", "agent=" + std::to_string(site.agent->pid()) + "; touch hit\n" +
                                way.fault + "\n");

    // Where the network's side is killed, there is no answer to wait for.
    const bool toNobody = std::string(way.fault).find("-net") != std::string::npos;
    std::string answer = site.request(way.request, toNobody ? "5" : kLong);
    if (answer.compare(0, 7, "Timeout") == 0)
        answer = "no answer";
    const bool hit = soon([&] {
        return *way.fault != '\0' ? site.has("hit")
                                  : !site.run("grep 'journal: No space' agent.log").empty();
    });
    EXPECT_TRUE(hit) << answer << site.run("cat agent.log");
    site.run("[ ! -e away ] || mv away state/dev");
    site.tracer.clear();
    const auto startAgain = [&] {
        site.agent.reset();
        site.startAlone(options);
        site.patience = "10"; // who is asked may be the one that dies
    };
    site.patience = "10";
    if (*way.tracer != '\0')
        startAgain();
    EXPECT_TRUE(soon([&] {
        if (!site.agent->running())
            startAgain();
        return !site.has("state/dev/change.journal") && site.get("8.4.0") == "INTEGER: 1";
    })) << site.run("cat agent.log");

    const std::string rows = site.sql(kRows);
    if (answer.empty() && !isTakenBack) {
        EXPECT_NE(before, rows);
    } else if (answer != "no answer" || isTakenBack) {
        EXPECT_EQ(before, rows) << answer;
    }
    // All of it is there or nothing: made again, it changes nothing more, or the same.
    site.release("fault");
    site.patience = kLong;
    EXPECT_EQ("", site.request(SET));
    const std::string after = site.sql(kRows);
    EXPECT_TRUE(rows == before || rows == after) << rows;
    EXPECT_TRUE(
        soon([&] { return site.run("pgrep -f $PWD/bin/quorlet").empty(); })); // nor a client left
    std::printf("%-50s %-12s %s\n", way.name, answer.c_str(), rows == before ? "before" : "after");
}

/// Some at once: most of them wait most of the time.
TEST(Faults, LeaveTheDeviceAsBeforeOrAsAfter) {
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> threads(8);
    for (std::thread& thread : threads)
        thread = std::thread([&] {
            for (std::size_t way; (way = next++) < std::size(kWays);)
                attempt(kWays[way]);
        });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
