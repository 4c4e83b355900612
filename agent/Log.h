#pragma once

#include <cstddef>
#include <string>

#include <syslog.h>

namespace agent {

/// Opens the system log as the library does; its lines come to standard error too, when wanted.
void openLog(bool standardError);

/// Writes "<level>:corvantad: <file>:<line>  <text>" to the system log.
void log(int priority, const std::string& text, const char* file = __builtin_FILE(),
         int line = __builtin_LINE());

/// Whether the library's trace goes to the log, too: each set of a row is a line of it.
void keepTrace(bool keep);

/// A text from elsewhere as it can stand in a line: cut at a length, '?' for what is no ASCII.
std::string printable(std::string text, std::size_t length);

/// Keeps the library's lines out of the log, while it lives.
class QuietLibrary {
public:
    QuietLibrary();
    ~QuietLibrary();
    QuietLibrary(const QuietLibrary&) = delete;
    QuietLibrary& operator=(const QuietLibrary&) = delete;
};

} // namespace agent
