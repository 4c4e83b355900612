#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include <syslog.h>

namespace agent {

/// Opens the system log as the library does, and copies its lines to standard error where wanted.
void openLog(bool standardError);

/// Writes "<level>:corvantad: <file>:<line>  <text>" to the system log.
void log(int priority, const std::string& text, const char* file = __builtin_FILE(),
         int line = __builtin_LINE());

/// Whether the library's trace goes to the log, which is a line for each row that is set.
void keepTrace(bool keep);

/// Makes a text from elsewhere fit for a log line: cut to a length, with '?' for each byte that is
/// not printable ASCII.
std::string printable(std::string text, std::size_t length);

/// Limits the lines of a source that could flood the log to some a minute.
class LineLimit {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Writes a line, as log() does, or leaves it out; the next one that is written tells how many
    /// were.
    void log(Time now, int priority, const std::string& text, const char* file = __builtin_FILE(),
             int line = __builtin_LINE());

    /// Counts a line that somebody else is about to write. @return whether it is to be left out
    bool leavesOut(Time now, const char* file = __builtin_FILE(), int line = __builtin_LINE());

private:
    Time m_end;
    int m_lines = 0;
};

/// Has all that log() is given pass a limit while it exists, and warnings of the library. A line
/// that must not be left out with the others has a LineLimit of its own.
class LimitedLog {
public:
    LimitedLog(LineLimit& limit, LineLimit::Time now);
    ~LimitedLog();
    LimitedLog(const LimitedLog&) = delete;
    LimitedLog& operator=(const LimitedLog&) = delete;

    void log(int priority, const std::string& text, const char* file, int line) {
        m_limit.log(m_now, priority, text, file, line);
    }
    bool leavesOut() { return m_limit.leavesOut(m_now); }

private:
    LineLimit& m_limit;
    const LineLimit::Time m_now;
};

/// Whether a line that the library logs is written.
bool wantsLine(int priority);

/// Keeps the library's lines out of the log while it exists.
class QuietLibrary {
public:
    QuietLibrary();
    ~QuietLibrary();
    QuietLibrary(const QuietLibrary&) = delete;
    QuietLibrary& operator=(const QuietLibrary&) = delete;
};

} // namespace agent
