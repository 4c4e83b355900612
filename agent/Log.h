#pragma once

#include <string>

#include <syslog.h>

namespace agent {

/// Opens the system log as the library does; its lines come to standard error too, when wanted.
void openLog(bool standardError);

/// Writes "<level>:corvantad: <file>:<line>  <text>" to the system log.
void log(int priority, const std::string& text, const char* file = __builtin_FILE(),
         int line = __builtin_LINE());

/// Keeps the library's lines out of the log, while it lives.
class QuietLibrary {
public:
    QuietLibrary();
    ~QuietLibrary();
    QuietLibrary(const QuietLibrary&) = delete;
    QuietLibrary& operator=(const QuietLibrary&) = delete;
};

} // namespace agent
