#include "agent/Log.h"

#include <algorithm>
#include <cstdarg>
#include <string_view>

namespace agent {

namespace {

constexpr int kLines = 20;
constexpr std::chrono::minutes kPeriod{1};

bool quiet = false;
bool trace = false;
LimitedLog* limited = nullptr;

[[gnu::format(printf, 2, 3)]] void write(int priority, const char* format, ...) {
    va_list values;
    va_start(values, format);
    vsyslog(priority, format, values);
    va_end(values);
}

void writeLine(int priority, const std::string& text, const char* file, int line) {
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

} // namespace

void openLog(bool standardError) {
    openlog("corvanta", LOG_PID | LOG_CONS | (standardError ? LOG_PERROR : 0), LOG_DAEMON);
}

void log(int priority, const std::string& text, const char* file, int line) {
    if (limited != nullptr)
        limited->log(priority, text, file, line);
    else
        writeLine(priority, text, file, line);
}

void keepTrace(bool keep) {
    trace = keep;
}

std::string printable(std::string text, std::size_t length) {
    const bool cut = text.size() > length;
    text.resize(std::min(text.size(), length));
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return cut ? text + "..." : text;
}

void LineLimit::log(Time now, int priority, const std::string& text, const char* file, int line) {
    if (!leavesOut(now, file, line))
        writeLine(priority, text, file, line);
}

bool LineLimit::leavesOut(Time now, const char* file, int line) {
    if (now >= m_end) {
        if (m_lines > kLines)
            writeLine(LOG_WARNING,
                      std::to_string(m_lines - kLines) +
                          " more lines like those before were left out",
                      file, line);
        m_end = now + kPeriod;
        m_lines = 0;
    }
    return ++m_lines > kLines;
}

LimitedLog::LimitedLog(LineLimit& limit, LineLimit::Time now) : m_limit(limit), m_now(now) {
    limited = this;
}

LimitedLog::~LimitedLog() {
    limited = nullptr;
}

bool wantsLine(int priority) {
    if (quiet || priority > LOG_WARNING)
        return !quiet && trace;
    return limited == nullptr || !limited->leavesOut();
}

QuietLibrary::QuietLibrary() {
    quiet = true;
}

QuietLibrary::~QuietLibrary() {
    quiet = false;
}

} // namespace agent
