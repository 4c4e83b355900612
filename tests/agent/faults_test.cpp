// A set is all or nothing: whatever fails at whichever of its commands, the device ends up as
// before the set or as after it, and the manager is never told the wrong one of the two. Tried on
// the stand-in device with a client that fails at a given command (fault_client.cpp).
//
// By default, some of the commands that write are tried in some of the ways, others for each set,
// and few of those that read; with $CORVANTA_FAULTS=N every Nth that writes, others in each way,
// and every 8Nth that reads, in all ways. $CORVANTA_FAULTS_SET and $CORVANTA_FAULTS_WAY choose by a
// part of the name.

#include "tests/agent/site/Site.h"

#include <gtest/gtest.h>

#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

namespace {

/// Requests are objects with their types and values; one before a slash is made before the next.
struct Set {
    const char* name;
    const char* before;
    const char* request;
    const char* inverse;
    const char* query; ///< after it, gives
    const char* rows;
    bool restored; ///< by default, not all have faults in bringing them back
};

struct Way {
    const char* name;
    char letter;    ///< as fault_client knows it
    bool restoring; ///< not in the set, but in bringing back what one left that was killed
    const char* options;
};

// clang-format off
#define MEMBERS "SELECT group_concat(Interface) FROM (SELECT * FROM BridgeInterface ORDER BY Id)"
#define BRIDGES "SELECT (SELECT count(*) FROM Bridge), (SELECT count(*) FROM BridgeInterface), (SELECT count(*) FROM BridgeFilter)"

const Set kSets[] = {
    {"VLAN on", "", "7.1.2.1 i 1", "7.1.2.1 i 2", MEMBERS, "eth0.101,wan1.101", false},
    {"VLAN off", "7.1.2.1 i 1", "7.1.2.1 i 2", "7.1.2.1 i 1", BRIDGES, "0|0|0", false},
    {"tag discarded", "7.1.2.1 i 1", "7.1.3.1 i 1", "7.1.3.1 i 2", MEMBERS, "eth0.101,wan1", false},
    {"tag kept again", "7.1.2.1 i 1/7.1.3.1 i 1", "7.1.3.1 i 2", "7.1.3.1 i 1", MEMBERS, "eth0.101,wan1.101", true},
    {"parent of one that is on", "7.1.2.1 i 1/7.1.3.1 i 1", "7.1.4.1 s wan2", "7.1.4.1 s wan1", MEMBERS, "eth0.101,wan2", true},
    {"parent of one that is off", "", "7.1.4.1 s wan2", "7.1.4.1 s wan1", "SELECT ParentIf FROM VLAN WHERE Id=2", "wan2", true},
    {"default WAN", "", "3.1.0 s wan2", "3.1.0 s ''", MEMBERS, "eth0,wan2", false},
    {"default WAN moved", "3.1.0 s wan2", "3.1.0 s wan3", "3.1.0 s wan2", MEMBERS, "eth0,wan3", true},
    {"default WAN taken from a VLAN", "7.1.4.1 s wan2/7.1.2.1 i 1", "3.1.0 s wan2", "3.1.0 s '' 7.1.2.1 i 1", MEMBERS, "eth0,wan2", false},
    {"default WAN taken, another VLAN on", "7.1.4.1 s wan2/7.1.2.1 i 1", "3.1.0 s wan2 7.1.2.2 i 1",
     "7.1.2.2 i 2 3.1.0 s '' 7.1.2.1 i 1", MEMBERS, "eth0,wan2,eth0.102,wan1.102", false},
    {"default WAN emptied, filter", "3.2.0 i 1/3.1.0 s wan2", "3.1.0 s ''", "3.1.0 s wan2", BRIDGES, "0|0|0", false},
    {"default WAN emptied", "3.1.0 s wan2", "3.1.0 s ''", "3.1.0 s wan2", BRIDGES, "0|0|0", true},
    {"circuit on", "", "6.1.2.4 i 1", "6.1.2.4 i 2", "SELECT Enabled FROM Atm WHERE Id=4", "1", false},
    {"circuit off", "", "6.1.2.8 i 2", "6.1.2.8 i 1", "SELECT Enabled FROM Atm WHERE Id=8", "0", false},
    {"VPI", "", "6.1.4.8 i 255", "6.1.4.8 i 8", "SELECT Vpi FROM Atm WHERE Id=8", "255", false},
    {"VCI", "", "6.1.5.1 i 65535", "6.1.5.1 i 32", "SELECT Vci FROM Atm WHERE Id=1", "65535", false},
    {"four objects", "", "6.1.5.1 i 77 6.1.2.4 i 1 3.1.0 s wan2 7.1.2.1 i 1",
     "7.1.2.1 i 2 3.1.0 s '' 6.1.2.4 i 2 6.1.5.1 i 32", MEMBERS, "eth0,wan2,eth0.101,wan1.101", false},
};

const Way kWays[] = {
    {"agent killed before", 'a', false, "-d 600"},
    {"agent killed after", 'A', false, "-d 600"},
    {"group killed before", 'g', false, "-d 600"},
    {"group killed after", 'G', false, "-d 600"},
    {"device's side killed", 'v', false, "-d 600"},
    {"network's side killed", 'n', false, "-d 600"},
    {"client dies before", 'd', false, "-d 600"},
    {"client dies after", 'D', false, "-d 600"},
    {"database locked", 'l', false, "-d 14"}, // for a second longer
    {"client hangs", 'h', false, "-d 600 --client-limit 4"},
    {"restore: group killed before", 'g', true, "-d 600"},
    {"restore: group killed after", 'G', true, "-d 600"},
    {"restore: device's side killed", 'v', true, "-d 600"},
    {"restore: client dies before", 'd', true, "-d 600"},
    {"restore: client dies after", 'D', true, "-d 600"},
    {"restore: database locked", 'l', true, "-d 600"},
};

/// The rows of all tables. A bridge's Id is replaced by its name, and a member's by its place.
const char* const kRows =
    "SELECT 'Atm', * FROM Atm; SELECT 'VLAN', * FROM VLAN; SELECT 'VLANSingleParams', * FROM VLANSingleParams;"
    "SELECT 'Bridge', Name, Stp FROM Bridge ORDER BY 2, 3;"
    "SELECT 'BridgeInterface', (SELECT Name FROM Bridge WHERE Id = BridgeId), Id - min(Id) OVER (PARTITION BY BridgeId),"
    " Interface, AllowLocalAccess, AllowDHCP FROM BridgeInterface ORDER BY 2, 3;"
    "SELECT 'BridgeFilter', (SELECT Name FROM Bridge WHERE Id = BridgeId), FilterRule, VLANId, PBit FROM BridgeFilter ORDER BY 2, 3;"
    "SELECT 'NetworkSetupNode', Type, InterfaceName, ParentInterface, ConfigurationSpecifics, Enable FROM NetworkSetupNode ORDER BY 2, 3, 4, 5, 6;"
    "SELECT 'StatusNetifConfig', Name FROM StatusNetifConfig ORDER BY 2;";
// clang-format on

/// From $CORVANTA_FAULTS; 0 for the usual few.
const int kEvery = [] {
    const char* const value = std::getenv("CORVANTA_FAULTS");
    return value != nullptr ? std::max(1, std::atoi(value)) : 0;
}();

// Every how many commands are tried: the usual few, or as many as are asked for.
const int kWriteStep = kEvery > 0 ? kEvery : 4;
const int kReadStep = kEvery > 0 ? 8 * kEvery : 60;
constexpr int kAgain = 4; ///< of the points, are followed by the same set and its inverse

constexpr int kNoEnd = 1000000;
constexpr std::size_t kWaysEach = 8; ///< by default, each set has every eighth way
constexpr int kPatience = 180000;    ///< in ms: on a busy machine nothing is late, only slow

/// A device with an agent, each with an address of its own: a port that is free for a moment, as
/// when the agent is started again, could be taken.
class Bench : public Site {
public:
    explicit Bench(const char* agentOptions) : options(agentOptions) {
        static std::atomic<int> count{0};
        const int number = ++count;
        address = "127." + std::to_string(1 + getpid() % 250) + "." + std::to_string(number / 250) +
                  "." + std::to_string(1 + number % 250) + ":10161";
        environment += "AGENT=$$ ";
        write("agent.conf", "rwcommunity test\n");
        run("ln -sf " FAULT_CLIENT " bin/quorlet");
    }

    /// Takes over another's device and what its agent has kept.
    void copy(const fs::path& other) {
        agent.reset();
        run("rm -rf device state; cp -r " + other.string() + "/device " + other.string() +
            "/state .; rm -f device/hit device/fault");
    }

    void start() {
        agent.reset();
        // Watching, a set reads less beforehand: more points in the same time.
        startAgent("-m " + address + " -c agent.conf -s state -i 3600 -a 604800 " +
                   (kEvery > 0 ? "-w device/config.db " : "") + options);
    }

    /// Waits until the agent answers, with nothing left to bring back. @return false when it dies
    bool settles() {
        const auto settled = [&] {
            if (!agent->running())
                return true;
            pause(400); // each look takes a process
            const std::string state =
                run(environment + "snmpget " + manager + " -r 0 -t 1 -Oqv " + address + " " +
                    oid("1.1.0") + " " + oid("8.4.0")); // refreshes, and cvChangeState
            if (state.find('\n') == state.npos || state.compare(0, 2, "0\n") == 0)
                return false;
            return state.substr(state.find('\n')) == "\n1\n";
        };
        return soon(settled, kPatience) && agent->running();
    }

    void arm(char way, char kind, int number) const {
        fs::remove(folder / "device/commands");
        fs::remove(folder / "device/hit");
        write("device/fault", std::string{way, ' ', kind, ' '} + std::to_string(number));
    }

    bool hit() const { return has("device/hit"); }

    void disarm() const { fs::remove(folder / "device/fault"); }

    /// Whether all processes of a client that hangs have gone.
    bool hungOnesGone() const {
        const int file = open((folder / "device/hit").c_str(), O_RDWR | O_CLOEXEC);
        const bool gone = soon([&] { return flock(file, LOCK_EX | LOCK_NB) == 0; });
        close(file);
        return gone;
    }

    std::string rows() const { return sql(kRows); }

    std::string difference(const std::string& before, const std::string& now) const {
        write("before", before);
        write("now", now);
        return run("diff -U 0 before now | grep '^[-+][^-+]'");
    }

    std::string options;
};

/// A set's device at its various stages, as a set without a fault goes.
struct Prepared {
    std::unique_ptr<Bench> ready;  ///< before the set
    std::unique_ptr<Bench> killed; ///< while it was being made, at its last command that writes
    std::string before, after, back;
    int writes = 0, reads = 0; ///< commands
    bool good = false;
};

enum Count { kPoints, kBefore, kAfter, kHalf, kDead, kWrong, kCounts };
using Tally = std::array<int, kCounts>;

int failures(const Tally& tally) {
    return tally[kHalf] + tally[kDead] + tally[kWrong];
}

void add(const Tally& tally, Tally& sum) {
    std::transform(sum.begin(), sum.end(), tally.begin(), sum.begin(), std::plus<>());
}

void print(const char* name, const char* way, const Tally& tally) {
    std::printf("%-30s %-28s", name, way);
    for (const int count : tally)
        std::printf("%7d", count);
    std::printf("\n");
    std::fflush(stdout);
}

/// One set and one way of failing, tried at one command after the other.
class Sweep {
public:
    Sweep(const Set& set, const Way& way, const Prepared& prepared)
        : m_set(set), m_way(way), m_prepared(prepared), m_site(way.options) {}

    /// Tries the commands whose turn it is, until there are no more.
    void run(int turn) {
        const bool open = kEvery > 0 || m_way.restoring; // else as many as without a fault
        every(kWriteStep, {'w', 1 + turn % std::min(kWriteStep, m_prepared.writes)},
              open ? kNoEnd : m_prepared.writes);
        every(kReadStep, {'r', 1 + turn * 7 % kReadStep}, open ? kNoEnd : m_prepared.reads);
    }

    Tally sum{};
    std::string stories; ///< of the points that failed

private:
    /// A fault at one command, and what came of it.
    struct Point {
        Point(char what, int which) : kind(what), number(which) {}

        char kind; ///< 'w' for commands that write, 'r' for those that read
        int number;
        std::string answer = "no answer"; ///< to the set
        bool hit = false;                 ///< there is such a command
        bool alive = false;               ///< afterwards the agent serves, with nothing left open
        Tally tally{};
        std::string story;
    };

    void every(int step, Point point, int last) {
        for (bool more = true; more && point.number <= last;
             point = {point.kind, point.number + step}) {
            more = attempt(point);
            if (!point.hit && failures(point.tally) == 0)
                continue;
            point.tally[kPoints] = 1;
            add(point.tally, sum);
            if (failures(point.tally) > 0)
                stories += std::string("  ") + point.kind + std::to_string(point.number) + ": " +
                           point.story;
        }
    }

    /// @return whether to go on to further commands
    bool attempt(Point& point) {
        if (m_way.restoring)
            restore(point);
        else
            ask(point);
        m_usable = false;
        point.hit = m_site.hit();
        if (!point.hit)
            m_site.disarm();
        recover(point);
        judge(point);
        return point.hit || tooSlow(point.answer);
    }

    /// The fault comes while the agent takes back what one left that was killed.
    void restore(const Point& point) {
        m_site.copy(m_prepared.killed->folder);
        m_site.arm(m_way.letter, point.kind, point.number);
        m_site.start();
        m_site.settles();
    }

    /// The fault comes while the set is made.
    void ask(Point& point) {
        if (!m_usable) {
            m_site.copy(m_prepared.ready->folder);
            m_site.start();
            m_site.settles();
        }
        m_site.arm(m_way.letter, point.kind, point.number);
        point.answer = m_site.request(m_set.request, m_way.letter == 'n' ? "12" : kLong);
        if (point.answer.compare(0, 7, "Timeout") == 0) // its network's side was killed
            point.answer = "no answer";
        const auto over = [&] {
            return point.answer != "no answer" || !m_site.agent->running() ||
                   !m_site.has("state/dev/change.journal");
        };
        soon(over, kPatience);
    }

    /// Starts an agent that was killed again, and waits until nothing is under way.
    void recover(Point& point) {
        const bool killed = !m_site.agent->running();
        const bool toBeKilled =
            point.hit && std::string("aAgG").find(m_way.letter) != std::string::npos;
        if (killed)
            m_site.start();
        const bool gone = m_way.letter != 'h' || !point.hit || m_site.hungOnesGone();
        const bool done = !killed && point.answer.empty(); // at once
        point.alive = (done || m_site.settles()) && gone && killed <= toBeKilled;
        m_site.disarm();
        soon([&] { return !m_site.has("device/locked"); });
    }

    /// Whether the device is as before or as after the set, as the manager was told.
    void judge(Point& point) {
        const std::string rows = m_site.rows();
        const bool isBefore = rows == m_prepared.before;
        const bool isAfter = rows == m_prepared.after;
        point.story = point.answer + (point.alive ? "" : ", dead") +
                      (isBefore  ? ", before"
                       : isAfter ? ", after"
                                 : ", half") +
                      m_site.run(std::string("echo; grep ^") + point.kind +
                                 " device/commands | sed -n " + std::to_string(point.number) + "p");
        if (!point.alive) {
            point.tally[kDead] = 1;
        } else if (!isBefore && !isAfter) {
            point.tally[kHalf] = 1;
            point.story += m_site.difference(m_prepared.before, rows);
        } else {
            point.tally[isBefore ? kBefore : kAfter] = 1;
            const std::string& answer = point.answer;
            const bool told = answer.empty() ? isAfter : isBefore || answer == "no answer";
            const bool failed = !m_way.restoring && !answer.empty() && !tooSlow(answer);
            point.tally[kWrong] = (m_way.restoring && !isBefore) || !told || (!point.hit && failed);
            m_usable = isBefore;
            if (isAfter || point.number / kWriteStep % kAgain == 0)
                m_usable = again(point, isBefore);
            m_usable = m_usable && !m_way.restoring;
        }
    }

    /// A busy machine lets a set miss a short deadline also where nothing fails.
    bool tooSlow(const std::string& answer) const {
        return m_way.letter == 'l' && (answer == "(genError)" || answer == "resourceUnavailable");
    }

    /// The same set succeeds, and so does its inverse. @return whether it led back to the start
    bool again(Point& point, bool isBefore) {
        std::string answer = isBefore ? askAgain(m_set.request) : "";
        std::string rows = m_site.rows();
        if (answer.empty() && rows == m_prepared.after) {
            answer = askAgain(m_set.inverse);
            rows = m_site.rows();
            if (answer.empty() && rows == m_prepared.back)
                return rows == m_prepared.before;
        }
        point.tally[kWrong] = 1;
        point.story +=
            "    then a set: " + answer + "\n" + m_site.difference(m_prepared.before, rows);
        return false;
    }

    std::string askAgain(const char* request) {
        std::string answer = m_site.request(request);
        for (int i = 0; i < 5 && tooSlow(answer) && m_site.settles(); ++i)
            answer = m_site.request(request);
        return answer;
    }

    const Set& m_set;
    const Way& m_way;
    const Prepared& m_prepared;
    Bench m_site;
    bool m_usable = false; ///< the device is as before the set, its agent runs
};

class Faults : public testing::Test {
protected:
    void prepare(std::size_t index) {
        const Set& set = kSets[index];
        Prepared& prepared = m_prepared[index];
        std::string failed;
        const auto ask = [&](const Bench& site, const std::string& request) {
            if (const std::string error = site.request(request.c_str()); !error.empty())
                failed += request + ": " + error + "\n";
        };
        prepared.ready = std::make_unique<Bench>("-d 600");
        Bench& site = *prepared.ready;
        site.start();
        site.settles();
        std::istringstream requests(set.before);
        for (std::string request; std::getline(requests, request, '/');)
            ask(site, request);
        site.agent->end(SIGTERM);

        Bench trial("-d 600");
        trial.copy(site.folder);
        prepared.before = trial.rows();
        trial.start();
        trial.settles();
        trial.arm('-', '-', 0);
        ask(trial, set.request);
        trial.disarm();
        prepared.writes = std::atoi(trial.run("grep -c ^w device/commands").c_str());
        prepared.reads = std::atoi(trial.run("grep -c ^r device/commands").c_str());
        prepared.after = trial.rows();
        const std::string rows = trial.sql(set.query);
        ask(trial, set.inverse);
        prepared.back = trial.rows();

        prepared.killed = std::make_unique<Bench>("-d 600");
        Bench& killed = *prepared.killed;
        killed.copy(site.folder);
        killed.start();
        killed.settles();
        killed.arm('G', 'w', prepared.writes);
        killed.request(set.request);
        if (killed.agent->running())
            failed += "not killed";
        killed.agent.reset();

        const std::lock_guard lock(m_mutex);
        prepared.good = failed.empty();
        EXPECT_EQ(failed, "") << set.name << site.run("cat agent.log");
        EXPECT_EQ(rows, set.rows + std::string("\n")) << set.name;
    }

    void sweep(std::size_t index, const Way& way, int turn) {
        if (!m_prepared[index].good)
            return;
        Sweep sweep(kSets[index], way, m_prepared[index]);
        sweep.run(turn);
        const std::lock_guard lock(m_mutex);
        print(kSets[index].name, way.name, sweep.sum);
        std::printf("%s", sweep.stories.c_str());
        add(sweep.sum, m_total);
    }

    std::vector<Prepared> m_prepared{std::size(kSets)};
    Tally m_total{};
    std::mutex m_mutex;
};

/// Runs jobs side by side: most of them wait most of the time.
void runAll(const std::vector<std::function<void()>>& jobs) {
    const unsigned atOnce = 5 * std::max(1U, std::thread::hardware_concurrency());
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < atOnce; ++i)
        threads.emplace_back([&] {
            for (std::size_t job; (job = next++) < jobs.size();)
                jobs[job]();
        });
    for (std::thread& thread : threads)
        thread.join();
}

/// Whether a name is asked for, by a part of it.
bool wanted(const char* variable, const char* name) {
    const char* const value = std::getenv(variable);
    return value == nullptr || std::string(name).find(value) != std::string::npos;
}

TEST_F(Faults, LeaveTheDeviceAsBeforeOrAsAfter) {
    const auto start = Clock::now();
    std::vector<std::function<void()>> preparations;
    std::vector<std::function<void()>> sweeps;
    for (std::size_t index = 0; index < std::size(kSets); ++index) {
        if (!wanted("CORVANTA_FAULTS_SET", kSets[index].name))
            continue;
        preparations.emplace_back([=] { prepare(index); });
        for (const Way& way : kWays) {
            if (!wanted("CORVANTA_FAULTS_WAY", way.name) ||
                (way.restoring && kEvery == 0 && !kSets[index].restored))
                continue;
            const auto nth = static_cast<std::size_t>(&way - kWays);
            if (kEvery == 0 && nth % kWaysEach != index % kWaysEach)
                continue;
            sweeps.emplace_back([=, &way] { sweep(index, way, static_cast<int>(index + nth)); });
        }
    }
    runAll(preparations);
    std::printf(
        "Every %dth command that writes and every %dth that reads; the same set and its "
        "inverse after every %dth.\n%-30s %-28s points before  after   half   dead  wrong\n",
        kWriteStep, kReadStep, kAgain, "set", "way");
    runAll(sweeps);

    print("total", (std::to_string(msSince(start) / 1000) + " s").c_str(), m_total);
    EXPECT_GT(m_total[kPoints], 0);
    EXPECT_EQ(0, failures(m_total));
}

} // namespace
