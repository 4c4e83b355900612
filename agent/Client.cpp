#include "Client.h"

#include "Log.h"
#include "Stage.h"
#include "Strangers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kMostOutput = 65536;
constexpr std::size_t kMostErrors = 1000; ///< of what it says on standard error
constexpr std::size_t kLongestLine = 200;
constexpr int kMeanOf = 16; ///< runs that the mean time of a client is of, roughly

std::chrono::seconds limit{30};
Wait waitFor;
std::uint32_t killed = 0;
Clock::duration meanTime{0};
pid_t running = 0; ///< 0 again when it is killed
Stage* stage = nullptr;
const bool* cutShort = nullptr;
std::string output; ///< what the program said that the library reads now

bool isCutShort() {
    return cutShort != nullptr && *cutShort;
}

/// The ends of a program's pipes that this process reads. They are there as long as it lives.
struct Pipes {
    ~Pipes() {
        for (const int descriptor : {output, errors, either})
            if (descriptor >= 0)
                close(descriptor);
    }

    int output = -1;
    int errors = -1;
    int either = -1; ///< readable when one of them is
};

/// @return the end for the program; -1 when there is none
int openPipe(int& reading, int either) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return -1;
    reading = ends[0];
    fcntl(reading, F_SETFL, O_NONBLOCK);
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    epoll_ctl(either, EPOLL_CTL_ADD, reading, &wanted);
    return ends[1];
}

/// Starts the shell with its output and standard error in pipes. @return its process, or -1
pid_t start(const std::string& commandLine, Pipes& pipes) {
    pipes.either = epoll_create1(EPOLL_CLOEXEC);
    const int forOutput = openPipe(pipes.output, pipes.either);
    const int forErrors = openPipe(pipes.errors, pipes.either);
    pid_t process = -1;
    if (forOutput >= 0 && forErrors >= 0) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, forOutput, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, forErrors, STDERR_FILENO);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        std::string shell = "sh";
        std::string option = "-c";
        std::string line = commandLine;
        const std::array<char*, 4> arguments = {shell.data(), option.data(), line.data(), nullptr};
        if (posix_spawn(&process, "/bin/sh", &actions, &attributes, arguments.data(), environ) != 0)
            process = -1;
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    for (const int descriptor : {forOutput, forErrors})
        if (descriptor >= 0)
            close(descriptor);
    return process;
}

struct Said {
    std::string text;
    std::string errors;
    bool well = false; ///< ended by itself, with status 0
};

/// Takes in what has come; what is beyond the limit is dropped. @return whether more can come
bool take(int descriptor, std::string& text, std::size_t most) {
    std::array<char, 4096> piece{};
    const ssize_t size = read(descriptor, piece.data(), piece.size());
    if (size <= 0)
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    text.append(piece.data(), std::min(static_cast<std::size_t>(size), most - text.size()));
    return true;
}

/// Whether a program is not waited for any longer: it takes too long, or was killed.
bool isOver(Clock::time_point deadline) {
    return running == 0 || Clock::now() >= deadline;
}

/// @return whether all has come before the deadline
bool readAll(const Pipes& pipes, Said& said, Clock::time_point deadline) {
    while (said.text.size() < kMostOutput) {
        while (!waitFor(pipes.either, deadline))
            if (isOver(deadline))
                return false;
        if (!take(pipes.errors, said.errors, kMostErrors))
            epoll_ctl(pipes.either, EPOLL_CTL_DEL, pipes.errors, nullptr);
        if (!take(pipes.output, said.text, kMostOutput))
            return true;
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
        if (isOver(deadline))
            return false;
        waitFor(-1, Clock::now() + pause);
    }
}

/// Why the shell finds no program of this name that it could run; empty when there is one.
std::string whyNotRun(const std::string& name) {
    const char* const variable = std::getenv("PATH");
    const std::string path = variable != nullptr ? variable : "";
    std::istringstream folders(path);
    std::string why = name + ": not found in PATH " + path;
    for (std::string file; std::getline(folders, file, ':');) {
        file += '/';
        file += name;
        if (access(file.c_str(), X_OK) == 0)
            return "";
        if (errno == EACCES)
            why = file + ": may not be run by this user";
    }
    return why;
}

/// Has the log tell what kept a program from running, once, and what it said on standard error.
void report(const std::string& commandLine, const std::string& errors, int status) {
    constexpr int kNotRun = 126; // the shell's status, and the next one
    static std::map<std::string, std::string> told;
    static LineLimit lines;
    std::string name;
    std::istringstream(commandLine) >> name;
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    const std::string why = code == kNotRun || code == kNotRun + 1 ? whyNotRun(name) : "";
    if (std::exchange(told[name], why) != why && !why.empty())
        log(LOG_ERR, why);
    if (!why.empty())
        return;
    std::istringstream said(errors);
    for (std::string line; std::getline(said, line);) {
        const int keptBack = lines.pass();
        if (keptBack > 0)
            log(LOG_WARNING, std::to_string(keptBack) + " more lines of programs were left out");
        if (keptBack >= 0)
            log(LOG_WARNING, name + " says: " + printable(line, kLongestLine));
    }
}

/// Runs a command line through the shell. One that hung, or was killed, has said nothing.
/// @return nothing when it could not be started
std::optional<Said> runProgram(const std::string& commandLine) {
    if (isCutShort())
        return std::nullopt;
    Pipes pipes;
    const pid_t process = start(commandLine, pipes);
    if (process < 0)
        return std::nullopt;
    running = process;
    const auto deadline = Clock::now() + limit;
    Said said;
    int status = 0;
    const bool ended = readAll(pipes, said, deadline) && awaitEnd(process, status, deadline);
    running = 0;
    if (!ended) {
        kill(-process, SIGKILL);
        waitpid(process, &status, 0);
        ++killed;
        log(LOG_WARNING, "a program hung and was killed:" + commandLine);
    }
    take(pipes.errors, said.errors, kMostErrors);
    report(commandLine, said.errors, status);
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
    if (const pid_t process = std::exchange(running, 0); process > 0)
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
