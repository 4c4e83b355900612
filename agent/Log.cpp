#include "Log.h"

#include <string_view>

#include <cstdarg>

namespace agent {

namespace {

bool quiet = false;

[[gnu::format(printf, 2, 3)]] void write(int priority, const char* format, ...) {
    va_list values;
    va_start(values, format);
    vsyslog(priority, format, values);
    va_end(values);
}

} // namespace

void openLog(bool standardError) {
    openlog("corvanta", LOG_PID | LOG_CONS | (standardError ? LOG_PERROR : 0), LOG_DAEMON);
}

void log(int priority, const std::string& text, const char* file, int line) {
    const char* level = priority <= LOG_ERR       ? "error"
                        : priority == LOG_WARNING ? "warning"
                        : priority == LOG_DEBUG   ? "debug"
                                                  : "info";
    std::string_view unit(file);
    unit.remove_prefix(unit.rfind('/') + 1);
    unit = unit.substr(0, unit.rfind('.'));
    write(priority, "%s:corvantad: %.*s:%d  %s\n", level, static_cast<int>(unit.size()),
          unit.data(), line, text.c_str());
}

QuietLibrary::QuietLibrary() {
    quiet = true;
}

QuietLibrary::~QuietLibrary() {
    quiet = false;
}

} // namespace agent

/// Takes the place of the system library's, so that the library can be told to be quiet.
extern "C" void syslog(int priority, const char* format, ...) {
    if (agent::quiet)
        return;
    va_list values;
    va_start(values, format);
    vsyslog(priority, format, values);
    va_end(values);
}
