// Plays histories of faults with the agent's own code, and says which break a promise.

#include "Player.h"

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <string>

using namespace simulation;

namespace {

const char* const kUsage =
    R"(Usage: simulate [OPTION]...
Plays histories of faults with the agent's own code, made up from a seed.

  --seed N         the first history's seed; by default, one that the clock gives
  --histories N    how many to play, with the seeds that follow; 1 is told step by step
  --operations N   plays until the agent has done so many operations
  --seconds N      plays for so long
  --go-on          counts failures by their kind instead of telling the first
  --all            fails also when a kind of event has not happened
  --help           prints this

Without any of them it plays the one history of the seed. Exit status: 0 when all promises are
kept, 1 when one is not, 2 for a wrong option.
)";

std::string* story = nullptr; ///< that log lines go into

struct Plan {
    std::uint64_t seed = static_cast<std::uint64_t>(
        std::chrono::system_clock::now().time_since_epoch().count() % 1000000007);
    std::uint64_t histories = 0;
    std::uint64_t operations = 0;
    std::uint64_t seconds = 0;
    bool all = false;
    bool goOn = false;
};

struct Totals {
    std::uint64_t histories = 0;
    std::uint64_t operations = 0;
    std::map<std::string, std::uint64_t> seen;
};

[[noreturn]] void refuse(const std::string& what) {
    std::cerr << "simulate: " << what << "; --help tells more\n";
    std::exit(2);
}

Plan planOf(int argc, char** argv) {
    Plan plan;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help") {
            std::cout << kUsage;
            std::exit(0);
        }
        if (option == "--all" || option == "--go-on") {
            (option == "--all" ? plan.all : plan.goOn) = true;
            continue;
        }
        std::uint64_t* const number = option == "--seed"         ? &plan.seed
                                      : option == "--histories"  ? &plan.histories
                                      : option == "--operations" ? &plan.operations
                                      : option == "--seconds"    ? &plan.seconds
                                                                 : nullptr;
        if (number == nullptr)
            refuse("unknown option " + option);
        char* end = nullptr;
        if (++i == argc || (*number = std::strtoull(argv[i], &end, 10), *argv[i] == '\0') ||
            *end != '\0' || *argv[i] == '-')
            refuse(option + " wants a number");
    }
    return plan;
}

/// Plays a history. @param trace  gets each step; null for none
Result play(const History& history, std::string* trace = nullptr) {
    story = trace;
    const auto tell = [trace](const std::string& line) { *trace += line + "\n"; };
    Player player(history,
                  trace != nullptr ? std::function<void(const std::string&)>(tell) : nullptr);
    Result result = player.play();
    story = nullptr;
    return result;
}

/// Cuts a history that fails down to the events that matter.
History shrink(History history) {
    for (std::size_t size = history.events.size() / 2; size > 0; size /= 2) {
        for (std::size_t at = 0;
             size < history.events.size() && at + size <= history.events.size();) {
            History shorter = history;
            const auto first = shorter.events.begin() + static_cast<std::ptrdiff_t>(at);
            const auto last = first + static_cast<std::ptrdiff_t>(size);
            int steps = 0; // what comes behind happens as late as before
            for (auto event = first; event != last; ++event)
                steps += event->steps;
            if (last != shorter.events.end())
                last->steps += steps;
            shorter.events.erase(first, last);
            if (!play(shorter).problem.empty())
                history = shorter;
            else
                at += size;
        }
    }
    return history;
}

void printTotals(const Totals& totals, double seconds) {
    std::cout << totals.histories << " histories, " << totals.operations << " operations in "
              << static_cast<long>(seconds) << " s, "
              << static_cast<long>(static_cast<double>(totals.operations) /
                                   std::max(seconds, 0.001))
              << " a second\n";
    for (const auto& [what, count] : totals.seen)
        std::printf("  %12llu  %s\n", static_cast<unsigned long long>(count), what.c_str());
}

int tellFailure(const History& history, const std::string& problem) {
    std::cout << "seed " << history.seed << ": " << problem << "\n"
              << "To play it again: scripts/simulate --seed " << history.seed << "\n";
    const History shortest = shrink(history);
    std::string trace;
    const Result result = play(shortest, &trace);
    std::cout << "The events that matter:\n"
              << describe(shortest) << trace << "=> " << result.problem << "\n";
    return 1;
}

int playMany(const Plan& plan) {
    const auto begun = std::chrono::steady_clock::now();
    const auto time = [&begun] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    };
    Totals totals;
    std::map<std::string, std::vector<std::uint64_t>> problems;
    const auto goesOn = [&] {
        return (plan.histories != 0 && totals.histories < plan.histories) ||
               (plan.operations != 0 && totals.operations < plan.operations) ||
               (plan.seconds != 0 && time() < static_cast<double>(plan.seconds));
    };
    std::cout << "seed " << plan.seed << std::endl;
    while (goesOn()) {
        const History history = historyOf(plan.seed + totals.histories++);
        const Result result = play(history);
        totals.operations += result.operations;
        for (const auto& [what, count] : result.seen)
            totals.seen[what] += static_cast<std::uint64_t>(count);
        if (!result.problem.empty() && !plan.goOn) {
            printTotals(totals, time());
            return tellFailure(history, result.problem);
        }
        if (!result.problem.empty())
            problems[result.problem.substr(0, result.problem.find(": ", 25))].push_back(
                history.seed);
    }
    printTotals(totals, time());
    int status = problems.empty() ? 0 : 1;
    for (const auto& [problem, seeds] : problems)
        std::printf("%6zu  %s; the first in seed %llu\n", seeds.size(), problem.c_str(),
                    static_cast<unsigned long long>(seeds.front()));
    for (int kind = 0; plan.all && kind < kKinds; ++kind) {
        if (totals.seen.count(nameOf(static_cast<What>(kind))) != 0)
            continue;
        std::cout << "never happened: " << nameOf(static_cast<What>(kind)) << "\n";
        status = 1;
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    const Plan plan = planOf(argc, argv);
    if (plan.histories + plan.operations + plan.seconds > 1)
        return playMany(plan);
    const History history = historyOf(plan.seed);
    std::string trace;
    const Result result = play(history, &trace);
    std::cout << describe(history) << trace;
    return result.problem.empty() ? 0 : tellFailure(history, result.problem);
}

/// What the agent and the library log is part of the story.
extern "C" void vsyslog(int, const char* format, va_list values) {
    if (story == nullptr)
        return;
    std::array<char, 1024> line{};
    std::vsnprintf(line.data(), line.size(), format, values);
    *story += std::string("    ") + line.data();
}

extern "C" void openlog(const char*, int, int) {}

/// The kernel's list of circuits, as the library reads it: there is none.
extern "C" FILE* fopen(const char*, const char*) {
    errno = ENOENT;
    return nullptr;
}
