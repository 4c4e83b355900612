#include "Log.h"

#include <string_view>

namespace agent {

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
    syslog(priority, "%s:corvantad: %.*s:%d  %s\n", level, static_cast<int>(unit.size()),
           unit.data(), line, text.c_str());
}

} // namespace agent
