// corvanta_bench SCRIPTS CLIENT_RUNS: what the library adds to its client runs, measured on the
// stand-in device. SCRIPTS is the folder of report.sh and report.pl. Each way of making a report
// does some CLIENT_RUNS per number of rows, in no less than three rounds.

#include "agent/dev/DatabaseReader.h"
#include "agent/dev/DeviceModel.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <dlfcn.h>
#include <stdio_ext.h>
#include <string_view>
#include <sys/resource.h>

#define REAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

namespace {

/// The first line that a program prints.
std::string ask(const std::string& command) {
    char line[8192];
    FILE* const program = REAL(popen)(command.c_str(), "r");
    const bool answered = program != nullptr && fgets(line, sizeof line, program) != nullptr;
    if (program != nullptr)
        REAL(pclose)(program);
    return answered ? line : "";
}

std::string library(int) {
    char* const text = getLayer2IfStatus();
    const std::string report = text + std::string("\n");
    free(text);
    return report;
}

// The library alone: the clients' answers come through one stream in memory.

std::string_view unread; ///< of the stream
long allocations = 0;

ssize_t readAnswer(void*, char* buffer, std::size_t size) {
    const std::size_t count = unread.copy(buffer, size);
    unread.remove_prefix(count);
    return static_cast<ssize_t>(count);
}

FILE* const stream = fopencookie(nullptr, "r", {readAnswer, nullptr, nullptr, nullptr});

struct Operation* running = nullptr; ///< without one the real clients answer

/// Runs once on the device; its answers are kept and given to every later run, in order.
struct Operation {
    const char* name;
    bool (*call)();
    std::vector<std::string> answers = {};
    std::size_t next = 0;
    bool recording = true;

    bool run() {
        running = this;
        next = 0;
        const bool good = call() && next == answers.size();
        recording = false;
        running = nullptr;
        return good;
    }
};

bool setVlan(int truthValue) {
    return VlanEnabled_snmp(access_set, &truthValue, 1) == CORVANTA_OK;
}

Operation operations[] = {{"report", [] { return library(0).size() > 1; }},
                          {"load", [] { return update_managed_objects(), true; }},
                          {"sets", [] { return setVlan(1) && setVlan(2); }}};

void libraryTime(benchmark::State& state, Operation* operation) {
    operation->run();
    const long before = allocations;
    for (auto _ : state)
        if (!operation->run())
            return state.SkipWithError("failed, or asked something else than on the device");
    state.counters["allocations"] =
        benchmark::Counter(double(allocations - before), benchmark::Counter::kAvgIterations);
    state.counters["runs"] = double(operation->answers.size());
}

/// The same answers, of which nobody makes anything.
void streamTime(benchmark::State& state, Operation* operation) {
    char line[256];
    operation->run();
    running = operation;
    for (auto _ : state)
        for (operation->next = 0; operation->next < operation->answers.size();)
            benchmark::DoNotOptimize(fgets(line, sizeof line, popen("", "r")));
    running = nullptr;
}

using Times = std::vector<double>; ///< seconds, one per round; their median is what counts

double median(Times times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

template <class Call>
double timed(Call call) {
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void configureCircuits(int count) {
    ask("sqlite3 \"$CORVANTA_DEVICE/config.db\" \"DELETE FROM Atm; INSERT INTO Atm SELECT value, "
        "1, 1 + (value - 1) % 19, 32, 'atm' || value, 0 FROM generate_series(1, " +
        std::to_string(count) + ")\"");
}

/// The report's client runs and nothing else. @return the last row
std::string bareLoop(int rows) {
    const std::string size = "quorlet \"size Atm;\"";
    std::string answer = ask(size);
    for (int row = 0; row < rows; ++row) {
        ask(size);
        answer = ask("quorlet \"selectrow Atm " + std::to_string(row) + ";\"");
    }
    return answer;
}

std::string scripts;
struct {
    std::string name;
    std::string (*report)(int rows);
} const ways[] = {{"library", library},
                  {"loop", bareLoop},
                  {"shell", [](int) { return ask("sh " + scripts + "/report.sh"); }},
                  {"Perl", [](int) { return ask("perl " + scripts + "/report.pl"); }}};
constexpr auto wayCount = std::size(ways);

/// A round takes every way once, so that what else the machine does meets them all alike.
void report(benchmark::State& state, int rows) {
    configureCircuits(rows);
    const std::string expected = library(rows);
    for (const auto& way : ways) {
        const std::string answer = way.report(rows);
        if (way.report == bareLoop ? std::atoi(answer.c_str()) != rows : answer != expected)
            return state.SkipWithError("the reports differ");
    }
    Times times[wayCount], ratios[wayCount]; // ratio: the library's time in terms of the way's
    for (auto _ : state) {
        const std::size_t round = ratios[0].size();
        for (std::size_t turn = round; turn < round + wayCount; ++turn)
            times[turn % wayCount].push_back(timed([&] { ways[turn % wayCount].report(rows); }));
        for (std::size_t way = 0; way < wayCount; ++way)
            ratios[way].push_back(times[0].back() / times[way].back());
    }
    state.counters["rows"] = rows;
    for (std::size_t way = 0; way < wayCount; ++way) {
        state.counters[ways[way].name] = median(times[way]);
        state.counters[ways[way].name + " ratio"] = median(ratios[way]);
    }
}

/// Processor time of this process, or of the children that it has waited for.
double processorTime(int who) {
    rusage usage = {};
    getrusage(who, &usage);
    const auto seconds = [](timeval t) { return double(t.tv_sec) + double(t.tv_usec) * 1e-6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void refresh(benchmark::State& state) {
    configureCircuits(agent::kUnits);
    agent::Image image;
    agent::Model model;
    Times own, all;
    for (auto _ : state) {
        const double self = processorTime(RUSAGE_SELF), children = processorTime(RUSAGE_CHILDREN);
        bool read = agent::dev::readLine(model);
        for (const agent::Table table : agent::kAllTables)
            read = read && agent::dev::readTable(image, table) == CORVANTA_OK;
        if (!read)
            return state.SkipWithError("the refresh failed");
        own.push_back(processorTime(RUSAGE_SELF) - self);
        all.push_back(own.back() + processorTime(RUSAGE_CHILDREN) - children);
    }
    state.counters["own"] = median(own);
    state.counters["all"] = median(all);
}

void oneRun(benchmark::State& state) {
    Times shell, client;
    for (auto _ : state) {
        shell.push_back(timed([] { ask(":"); }));
        client.push_back(timed([] { ask("quorlet \"size Atm;\""); }));
    }
    state.counters["shell"] = median(shell);
    state.counters["client"] = median(client);
}

} // namespace

// What the library calls instead of the platform's own.
extern "C" {
FILE* popen(const char* command, const char* mode) {
    if (running == nullptr)
        return REAL(popen)(command, mode);
    if (running->recording)
        running->answers.push_back(ask(command));
    unread = running->answers.at(running->next++);
    __fpurge(stream);
    clearerr(stream);
    return stream;
}

int pclose(FILE* file) {
    return file == stream ? 0 : REAL(pclose)(file);
}

void syslog(int, const char*, ...) {} // sets write trace lines
void* __libc_malloc(std::size_t size);
void* malloc(std::size_t size) { // operator new calls it, too
    ++allocations;
    return __libc_malloc(size);
}
}

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (argc != 3 || initialize(0) != 1)
        return 1;
    configureCircuits(512);
    update_managed_objects(); // sets need it
    scripts = argv[1];
    const int runs = std::atoi(argv[2]);
    for (Operation& operation : operations) {
        const std::string name = std::string("alone/") + operation.name;
        benchmark::RegisterBenchmark((name + "/library").c_str(), libraryTime, &operation);
        benchmark::RegisterBenchmark((name + "/stream").c_str(), streamTime, &operation);
    }
    for (int rows = 1; rows <= 512; rows *= 2)
        benchmark::RegisterBenchmark("road/report", report, rows)
            ->Iterations(std::max(3, runs / (1 + 2 * rows)));
    benchmark::RegisterBenchmark("road/refresh", refresh)->Iterations(std::max(3, runs / 80));
    benchmark::RegisterBenchmark("road/run", oneRun)->Iterations(runs);
    benchmark::RunSpecifiedBenchmarks();
}
