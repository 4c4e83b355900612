#pragma once

#include "agent/system/System.h"

namespace agent {

/// A program that runs, started in a process group of its own, without a shell. It is killed with
/// this.
///
/// It has ended when its process has: what it leaves behind in the background is somebody else's,
/// even where that keeps its output open.
class Program {
public:
    Program() = default;
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Looks the program up in PATH. One that is not there, or may not be run, ends with the status
    /// of a shell that could not run it.
    /// @param lock  a file that it has locked while it runs; -1 for none
    /// @return whether it has started; a line that names no program and one argument is logged
    bool start(const std::string& commandLine, int lock);

    /// Takes in what has come. @return how it ended; nothing while it runs
    std::optional<ProgramEnd> collect();

    /// Ends its process group. It has said nothing then.
    void kill();

    /// Readable when something has come, or it has ended.
    int descriptor() const { return m_any; }

    /// When to look whether it has ended, at the latest: some kernels have no event for that.
    Clock::time_point lookAgain();

private:
    static constexpr std::chrono::microseconds kShortestPause{100};

    void watch(int descriptor);
    int openPipe(int& reading);
    void takeFrom(int& descriptor, std::string& text, std::size_t most);

    pid_t m_process = -1;
    int m_output = -1; ///< the ends of its pipes, until nothing comes any more
    int m_errors = -1;
    int m_end = -1; ///< readable when it has ended
    int m_any = -1; ///< readable when one of them is
    Clock::duration m_pause = kShortestPause;
    ProgramEnd m_said;
};

} // namespace agent
