#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

inline int msSince(Clock::time_point start) {
    return static_cast<int>((Clock::now() - start) / milliseconds(1));
}

inline void pause(int ms) {
    std::this_thread::sleep_for(milliseconds(ms));
}

/// Tries until it holds; gives up after a time in which even a busy machine gets there.
template <class Condition>
bool soon(Condition condition, int ms = 600000) {
    for (const auto start = Clock::now(); !condition(); pause(50)) {
        if (msSince(start) > ms)
            return false;
    }
    return true;
}

/// What a command in a folder prints, errors included.
std::string output(const fs::path& folder, const std::string& command);

/// A program that runs in a folder, in a process group of its own.
class Process {
public:
    Process(const fs::path& folder, const std::string& command,
            const std::function<void()>& prepare = {});
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process();

    pid_t pid() const { return m_pid; }

    bool running() const;

    /// @return the exit status, or -1 when the signal ended it
    int end(int signal);

private:
    pid_t m_pid;
};
