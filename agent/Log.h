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
    /// @return -1 where this line is over the limit; else how many were suppressed before it
    int pass(std::chrono::steady_clock::time_point now);

private:
    std::chrono::steady_clock::time_point m_end;
    int m_lines = 0;
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
