#include "objects/client.h"

#include <cstdarg>
#include <cstdio>

namespace kavo::snmp {

namespace {

constexpr std::string_view commandStart = " quorlet \"";
constexpr std::string_view commandEnd = ";\" ";

// A formatted command and the length it would have without the buffer's limit.
struct Command {
    char text[200];
    int length;

    Command(const char* format, va_list values)
        : length(vsnprintf(text, sizeof text, format, values)) {
        if (!isWhole())
            length = 0;
    }

    // Whether it is one command still, whatever the values hold. One that is cut has no end.
    bool isWhole() const {
        std::string_view rest = text;
        if (rest.size() < commandStart.size() + commandEnd.size() ||
            rest.substr(rest.size() - commandEnd.size()) != commandEnd)
            return false;
        rest.remove_prefix(commandStart.size());
        rest.remove_suffix(commandEnd.size());
        return isSafeText(rest);
    }
};

int runShort(int level, Reply& reply, const char* format, va_list values) {
    const Command command(format, values);
    if (command.length <= 0)
        return CORVANTA_UNFIT;
    return call_cmd(command.text, reply.text, level);
}

} // namespace

int run(Reply& reply, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int status = runShort(levelUntraced, reply, format, values);
    va_end(values);
    return status;
}

int runAt(int level, Reply& reply, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int status = runShort(level, reply, format, values);
    va_end(values);
    return status;
}

int runTraced(Reply& reply, const char* format, ...) {
    va_list values;
    va_start(values, format);
    Command command(format, values);
    va_end(values);
    if (const int status = call_cmd(command.text, sizeof command.text, command.length))
        return status;
    reply.text = command.text;
    return CORVANTA_OK;
}

} // namespace kavo::snmp
