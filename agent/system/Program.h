#pragma once

#include "agent/system/System.h"

namespace agent {

struct CommandLine;

/// A program that runs, started in a process group of its own, without a shell. It is killed with
/// this.
class Program {
public:
    Program() = default;
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Looks the program up in PATH. One that is not there, or may not be run, ends with the status
    /// of a shell that could not run it.
    /// @return whether it has started; a line that names no program and one argument is logged
    bool start(const std::string& commandLine);

    /// Takes in what has come. @return how it ended; nothing while it runs
    std::optional<ProgramEnd> collect();

    /// Ends it with all that it has started, which then has said nothing.
    void kill();

    /// Readable when something has come; -1 once nothing will, and only its end is waited for.
    int descriptor() const { return m_outputEnded ? -1 : m_either; }

    /// How long to wait for its end before looking again.
    Clock::duration pause();

private:
    int openPipe(int& reading);
    bool spawn(CommandLine& words, int output, int errors);

    pid_t m_process = -1;
    int m_output = -1; ///< the ends of its pipes
    int m_errors = -1;
    int m_either = -1; ///< readable when one of them is
    bool m_outputEnded = false;
    Clock::duration m_pause = std::chrono::microseconds(100);
    ProgramEnd m_said;
};

} // namespace agent
