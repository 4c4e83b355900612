// idle_bench SECONDS DEVICE COMMAND...: what an agent costs that is asked nothing. Starts the
// command on the stand-in device in that folder, measures from the end of its first refresh for so
// many seconds or one interval, up to the end of one, and ends it. Prints: seconds, processor time
// in ms, runs of the database's client, runs of the DSL tool.
//
// The time of the agent's processes is told in nanoseconds, that of all that they have started and
// waited for only in steps of 10 ms: the average of several agents is more exact. Client runs are
// openings of the device's files. Neither costs the agent anything.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr Seconds kSettle{1.5};   ///< for a refresh that has read the line, its last step
constexpr Seconds kJitter{0.5};   ///< of an interval
constexpr Seconds kPatience{600}; ///< with one refresh
constexpr double kLeast = 0.8;    ///< of all the time that the agent has taken in the end

pid_t agent = 0;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "idle_bench: %s\n", what);
    if (agent > 0)
        kill(agent, SIGTERM);
    std::exit(1);
}

/// How often a file has been opened, and closed again.
class Openings {
public:
    explicit Openings(const std::string& file) : m_inotify(inotify_init1(IN_CLOEXEC)) {
        if (inotify_add_watch(m_inotify, file.c_str(), IN_OPEN | IN_CLOSE) < 0)
            fail("there is no such device");
    }
    Openings(const Openings&) = delete;
    Openings& operator=(const Openings&) = delete;
    ~Openings() { close(m_inotify); }

    int opened() { return look(0), m_opened; }

    void awaitClose(Clock::time_point deadline) {
        const int before = (look(0), m_closed);
        while (m_closed == before) {
            if (waitpid(agent, nullptr, WNOHANG) != 0)
                fail("the agent has ended");
            if (Clock::now() > deadline)
                fail("the agent reads nothing");
            look(1000);
        }
    }

private:
    void look(int ms) {
        alignas(inotify_event) char buffer[16384];
        for (pollfd waiting{m_inotify, POLLIN, 0}; poll(&waiting, 1, ms) > 0; ms = 0) {
            const ssize_t size = read(m_inotify, buffer, sizeof buffer);
            for (ssize_t at = 0; at < size;) {
                const auto& event = *reinterpret_cast<const inotify_event*>(buffer + at);
                at += static_cast<ssize_t>(sizeof event + event.len);
                m_opened += (event.mask & IN_OPEN) != 0;
                m_closed += (event.mask & IN_CLOSE) != 0;
                if ((event.mask & IN_Q_OVERFLOW) != 0)
                    fail("openings were missed");
            }
        }
    }

    int m_inotify;
    int m_opened = 0;
    int m_closed = 0;
};

void start(char** command) {
    agent = fork();
    if (agent < 0)
        fail("no processes");
    if (agent == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM); // a measurement that is interrupted leaves nothing
        execvp(command[0], command);
        _exit(127);
    }
}

/// The time of the agent, its children, theirs, and all that they have waited for.
double spent() {
    struct Entry {
        pid_t parent;
        double endedChildren;
    };
    static const double tick = 1000. / static_cast<double>(sysconf(_SC_CLK_TCK));
    std::map<pid_t, Entry> all;
    for (const auto& folder : std::filesystem::directory_iterator("/proc")) {
        std::string text;
        if (!std::getline(std::ifstream(folder.path() / "stat"), text) ||
            text.find(')') == text.npos)
            continue; // no process, or one that has just ended
        std::istringstream fields(text.substr(text.rfind(')') + 1));
        std::string skipped;
        Entry entry{};
        fields >> skipped >> entry.parent;
        for (int i = 5; i <= 15; ++i)
            fields >> skipped;
        double user = 0;
        double system = 0;
        fields >> user >> system;
        entry.endedChildren = (user + system) * tick;
        all[std::atoi(text.c_str())] = entry;
    }
    double sum = 0;
    for (auto [process, entry] : all) {
        pid_t ancestor = process;
        while (ancestor != agent && all.count(ancestor) != 0)
            ancestor = all[ancestor].parent;
        clockid_t clock = 0;
        timespec own{};
        if (ancestor == agent && clock_getcpuclockid(process, &clock) == 0 &&
            clock_gettime(clock, &own) == 0)
            sum += static_cast<double>(own.tv_sec) * 1e3 + static_cast<double>(own.tv_nsec) / 1e6 +
                   entry.endedChildren;
    }
    return sum;
}

double milliseconds(const rusage& used) {
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) * 1e3 +
           static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e3;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fputs("usage: see the head of idle_bench.cpp\n", stderr);
        return 2;
    }
    const Seconds time(std::atof(argv[1]));
    const std::string device = argv[2];
    Openings database(device + "/config.db");
    Openings line(device + "/line-rates");
    start(argv + 3);

    struct Reading {
        Clock::time_point at = Clock::now();
        double time;
        int clients;
        int tools;
    };
    const auto afterRefresh = [&] {
        line.awaitClose(Clock::now() + std::chrono::ceil<Clock::duration>(kPatience));
        std::this_thread::sleep_for(kSettle);
        return Reading{Clock::now(), spent(), database.opened(), line.opened()};
    };
    const Reading first = afterRefresh();
    Reading last = afterRefresh();
    while (last.at - first.at < time - kJitter)
        last = afterRefresh();

    const double counted = spent();
    kill(agent, SIGTERM);
    rusage used{};
    int status = 0;
    wait4(agent, &status, 0, &used);
    if (counted < kLeast * milliseconds(used))
        fail("processes are missing in the count");
    std::printf("%.3f %.3f %d %d\n", Seconds(last.at - first.at).count(), last.time - first.time,
                last.clients - first.clients, last.tools - first.tools);
    return 0;
}
