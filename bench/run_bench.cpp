// run_bench PAIRS PROGRAM ARGUMENT: runs the program as the agent does and by a bare posix_spawn()
// in turn, and prints the median ratio of the agent's time to the other with the interval of 95 %,
// and both medians in ms.

#include "Pairs.h"

#include "agent/system/RealSystem.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

/// @return the output's size
std::size_t runBare(char** words) {
    int ends[2];
    if (pipe(ends) != 0)
        return 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    posix_spawn_file_actions_addclose(&actions, ends[1]);
    pid_t process = 0;
    posix_spawnp(&process, words[0], &actions, nullptr, words, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::size_t all = 0;
    char piece[4096];
    for (ssize_t size; (size = read(ends[0], piece, sizeof piece)) > 0;)
        all += static_cast<std::size_t>(size);
    close(ends[0]);
    waitpid(process, nullptr, 0);
    return all;
}

std::size_t runAsTheAgent(agent::System& system, const std::string& commandLine) {
    system.startProgram(commandLine);
    for (;;) {
        if (const auto end = system.collectProgram())
            return end->output.size();
        system.wait({false, false, true, false}, system.now() + std::chrono::seconds(60));
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        return std::fputs("usage: see the head of run_bench.cpp\n", stderr), 2;
    agent::RealSystem system({-1, -1, -1}, {}, ".", "");
    const std::string commandLine = std::string(argv[2]) + " \"" + argv[3] + "\"";
    Pairs times;
    for (int i = -10; i < 2 * std::atoi(argv[1]); ++i) {
        const auto start = std::chrono::steady_clock::now();
        const std::size_t said =
            Pairs::next(i) == 0 ? runBare(argv + 2) : runAsTheAgent(system, commandLine);
        times.add(i, std::chrono::steady_clock::now() - start);
        if (said == 0)
            return std::fputs("run_bench: the program says nothing\n", stderr), 1;
    }
    times.print("client run");
    return 0;
}
