#include "Client.h"

#include "Log.h"
#include "Stage.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kMostOutput = 65536;
constexpr int kMeanOf = 16; ///< runs that the mean time of a client is of, roughly

std::chrono::seconds limit{30};
Wait waitFor;
std::uint32_t killed = 0;
Clock::duration meanTime{0};
pid_t running = 0;
Stage* stage = nullptr;
const bool* cutShort = nullptr;
std::string output; ///< what the program said that the library reads now

bool isCutShort() {
    return cutShort != nullptr && *cutShort;
}

/// Starts the shell with its output in a pipe. @return its process, or -1
pid_t start(const std::string& commandLine, int& reading) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    std::string shell = "sh";
    std::string option = "-c";
    std::string line = commandLine;
    const std::array<char*, 4> arguments = {shell.data(), option.data(), line.data(), nullptr};
    pid_t process = -1;
    if (posix_spawn(&process, "/bin/sh", &actions, &attributes, arguments.data(), environ) != 0)
        process = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (process < 0)
        close(ends[0]);
    reading = ends[0];
    return process;
}

/// @return whether all has come before the deadline
bool readAll(int descriptor, std::string& text, Clock::time_point deadline) {
    std::array<char, 4096> piece{};
    while (text.size() < kMostOutput) {
        while (!waitFor(descriptor, deadline))
            if (Clock::now() >= deadline)
                return false;
        const ssize_t size = read(descriptor, piece.data(), piece.size());
        if (size == 0)
            return true;
        if (size > 0)
            text.append(piece.data(), static_cast<std::size_t>(size));
        else if (errno != EINTR)
            return false;
    }
    return false;
}

/// @return whether the process has ended before the deadline
bool awaitEnd(pid_t process, int& status, Clock::time_point deadline) {
    // It has closed its output and has little left to do.
    for (Clock::duration pause = std::chrono::microseconds(100);;
         pause = std::min<Clock::duration>(2 * pause, milliseconds(50))) {
        if (waitpid(process, &status, WNOHANG) != 0)
            return true;
        if (Clock::now() >= deadline)
            return false;
        waitFor(-1, Clock::now() + pause);
    }
}

struct Said {
    std::string text;
    bool well; ///< ended by itself, with status 0
};

/// Runs a command line through the shell. One that hung, or was killed, has said nothing.
/// @return nothing when it could not be started
std::optional<Said> runProgram(const std::string& commandLine) {
    if (isCutShort())
        return std::nullopt;
    int reading = -1;
    const pid_t process = start(commandLine, reading);
    if (process < 0)
        return std::nullopt;
    running = process;
    const auto deadline = Clock::now() + limit;
    Said said{"", false};
    int status = 0;
    const bool ended = readAll(reading, said.text, deadline) && awaitEnd(process, status, deadline);
    close(reading);
    running = 0;
    if (!ended) {
        kill(-process, SIGKILL);
        waitpid(process, &status, 0);
        ++killed;
        log(LOG_WARNING, "a program hung and was killed:" + commandLine);
    }
    // Half an answer of a killed one could pass for a whole one.
    if (!ended || !WIFEXITED(status))
        said.text.clear();
    said.well = ended && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return said;
}

} // namespace

void setClientLimit(std::chrono::seconds seconds) {
    limit = seconds;
}

void setWait(Wait use) {
    waitFor = std::move(use);
}

std::uint32_t clientsKilled() {
    return killed;
}

std::chrono::microseconds clientTime() {
    return std::chrono::duration_cast<std::chrono::microseconds>(meanTime);
}

bool timeClient(const std::function<bool()>& run) {
    const auto before = std::exchange(meanTime, Clock::duration(0));
    if (run() && meanTime.count() != 0)
        return true;
    meanTime = before;
    return false;
}

void killProgram() {
    if (const pid_t process = running; process > 0)
        kill(-process, SIGKILL);
}

std::optional<std::string> runDatabaseClient(const std::string& commandLine) {
    const auto begun = Clock::now();
    auto said = runProgram(commandLine);
    if (!said)
        return std::nullopt;
    const auto took = Clock::now() - begun;
    if (said->well)
        meanTime += meanTime.count() == 0 ? took : (took - meanTime) / kMeanOf;
    return std::move(said->text);
}

CutShort::CutShort(const bool& flag) : m_before(std::exchange(cutShort, &flag)) {}

CutShort::~CutShort() {
    cutShort = m_before;
}

OnStage::OnStage(Stage& use) : m_before(std::exchange(stage, &use)) {}

OnStage::~OnStage() {
    stage = m_before;
}

} // namespace agent

/// Takes the place of the system library's for the library. It reads one program at a time.
extern "C" FILE* popen(const char* command, const char*) {
    using namespace agent;
    std::optional<std::string> said;
    if (!Stage::isFor(command)) {
        const auto ran = runProgram(command);
        if (ran && ran->well) // what a tool that failed has printed is no reading
            said = ran->text;
    } else if (stage != nullptr) {
        said = stage->answer(command);
    } else {
        said = runDatabaseClient(command);
    }
    if (!said) {
        errno = EAGAIN;
        return nullptr;
    }
    output = std::move(*said);
    return fmemopen(output.data(), output.size(), "r");
}

extern "C" int pclose(FILE* stream) {
    return fclose(stream);
}

/// Likewise, for its pauses.
extern "C" unsigned sleep(unsigned seconds) {
    using namespace agent;
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    while (Clock::now() < end && !isCutShort())
        waitFor(-1, end);
    return 0;
}
