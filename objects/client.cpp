#include "objects/client.h"

#include "frame/Failures.h"

#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace kavo::snmp {

namespace {

constexpr std::string_view commandStart = " quorlet \"";
constexpr std::string_view commandEnd = ";\" ";

constexpr int commandSize = 200; // of a command, its terminator included
constexpr int quietSize = 199;   // the same for one that the log does not show

// Whether it is one command still, whatever the values hold. One that was cut has no end.
bool isWhole(std::string_view command) {
    if (command.size() < commandStart.size() + commandEnd.size() ||
        command.substr(command.size() - commandEnd.size()) != commandEnd)
        return false;
    command.remove_prefix(commandStart.size());
    command.remove_suffix(commandEnd.size());
    return isSafeText(command);
}

int runFormatted(int size, int level, Reply& reply, const char* format, va_list values) {
    char command[commandSize];
    const int length = vsnprintf(command, sizeof command, format, values);
    if (!isWhole(command))
        return counted(CORVANTA_UNFIT);
    return call_cmd(command, size, length, reply.text, sizeof reply.text, level);
}

} // namespace

int run(Reply& reply, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int status = runFormatted(quietSize, levelUntraced, reply, format, values);
    va_end(values);
    return status;
}

int runAt(int level, Reply& reply, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int status = runFormatted(quietSize, level, reply, format, values);
    va_end(values);
    return status;
}

int runTraced(Reply& reply, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int status = runFormatted(commandSize, levelTraced, reply, format, values);
    va_end(values);
    return status;
}

} // namespace kavo::snmp
