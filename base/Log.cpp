#include "base/Log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <syslog.h>

namespace kavo::snmp::log {

namespace {

struct LevelName {
    char word[8];
    int priority;
};

constexpr LevelName kLevels[] = {
    {"error", LOG_ERR},     {"warning", LOG_WARNING}, {"trace", LOG_INFO},
    {"tracedo", LOG_DEBUG}, {"debug", LOG_DEBUG},
};

} // namespace

void Unit::write(Level level, int sourceLine, const char* format, ...) const noexcept {
    const LevelName& name = kLevels[static_cast<int>(level)];
    char buffer[512];
    const int head =
        snprintf(buffer, sizeof buffer, "%s:%s: %s:%d  ", name.word, tag, file, sourceLine);
    const auto headSize = static_cast<std::size_t>(head);
    va_list values;
    va_start(values, format);
    const int text = vsnprintf(buffer + head, sizeof buffer - headSize, format, values);
    va_end(values);

    const std::size_t size = headSize + static_cast<std::size_t>(text) + 1;
    std::unique_ptr<char[]> whole;
    if (text > 0 && size > sizeof buffer)
        whole.reset(new (std::nothrow) char[size]);
    if (whole) {
        memcpy(whole.get(), buffer, headSize);
        va_start(values, format);
        vsnprintf(whole.get() + head, size - headSize, format, values);
        va_end(values);
    }
    syslog(name.priority, "%s\n", whole ? whole.get() : buffer);
}

} // namespace kavo::snmp::log
