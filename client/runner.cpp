#include "base/Guard.h"
#include "base/Log.h"
#include "base/Pipe.h"
#include "client/Client.h"
#include "frame/Wrapper.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

using namespace kavo::snmp;

namespace {

constexpr log::Unit kUnit = {"corvanta", "corvanta"};

constexpr std::string_view kUnknownRow = "Unknown row\n";
constexpr std::string_view kDatabaseLocked = "Database locked\n";
constexpr int kAttempts = 20;

unsigned long failures = 0;

int meaning(const Answer& answer) {
    const std::string_view text(answer.text, answer.size);
    if (text.empty())
        return CORVANTA_FAILED;
    if (text.size() == answer.tooLong)
        return CORVANTA_UNFIT;
    if (text == kUnknownRow)
        return CORVANTA_UNKNOWN_ROW;
    return text == kDatabaseLocked ? CORVANTA_LOCKED : CORVANTA_OK;
}

// Whether each text among a format's values can stand in a command.
bool areSafe(const char* format, va_list values) {
    for (const char* at = strchr(format, '%'); at != nullptr; at = strchr(at + 1, '%')) {
        ++at;
        if (*at == 'd') {
            va_arg(values, int);
            continue;
        }
        const bool hasLength = *at == '.'; // "%.*s"
        const int length = hasLength ? va_arg(values, int) : 0;
        const char* const text = va_arg(values, const char*);
        if (text == nullptr ||
            !isSafeText(hasLength ? std::string_view(text, static_cast<std::size_t>(length))
                                  : std::string_view(text)))
            return false;
    }
    return true;
}

int formatValues(char* command, int size, const char* format, va_list values) {
    va_list checked;
    va_copy(checked, values);
    const bool safe = areSafe(format, checked);
    va_end(checked);
    return safe ? vsnprintf(command, static_cast<std::size_t>(size), format, values) : kUnsafe;
}

} // namespace

int kavo::snmp::counted(int status) {
    if (status != CORVANTA_OK && status != CORVANTA_UNKNOWN_ROW)
        ++failures;
    return status;
}

unsigned long client_failures(void) {
    return failures;
}

int kavo::snmp::formatCommand(char* command, int size, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int length = formatValues(command, size, format, values);
    va_end(values);
    return length;
}

int kavo::snmp::runOnce(int level, Answer& answer, const char* command) {
    int status = CORVANTA_FAILED;
    FILE* const client = popen(command, "r");
    if (client != nullptr) {
        answer.size = fread(answer.text, 1, answer.tooLong, client);
        answer.text[answer.size] = '\0';
        status = meaning(answer);
        if (status == CORVANTA_OK && answer.text[answer.size - 1] == '\n')
            answer.text[answer.size - 1] = '\0';
    }
    LOG_IF(level < kTracedBelow, trace, "%s ==> %s", command, answer.text);
    if (client != nullptr)
        pclose(client);
    return status;
}

int kavo::snmp::runCommand(Manner manner, Answer& answer, const char* command, int length) {
    answer.text[0] = '\0';
    int status = CORVANTA_UNFIT;
    if (length > 0 && length < manner.commandSize) {
        status = runOnce(manner.level, answer, command);
        for (int attempt = 1; status == CORVANTA_LOCKED && attempt < kAttempts; ++attempt) {
            sleep(1);
            status = runOnce(manner.level, answer, command);
        }
    }
    if (status != CORVANTA_OK)
        answer.text[0] = '\0';
    return counted(status);
}

int kavo::snmp::run(Manner manner, Answer& answer, const char* format, ...) {
    char command[kCommandSize];
    va_list values;
    va_start(values, format);
    const int length = formatValues(command, sizeof command, format, values);
    va_end(values);
    return runCommand(manner, answer, command, length);
}

int kavo::snmp::deliver(const Answer& answer, char* target, int capacity) {
    target[0] = '\0';
    target[capacity - 1] = '\0';
    strncat(target, answer.text, static_cast<std::size_t>(capacity - 1));
    return static_cast<int>(strlen(target));
}

Line kavo::snmp::readLine(Wrapper& wrapper, const std::string& command,
                          std::initializer_list<std::string_view> texts, char (&line)[256]) {
    Line result = Line::notStarted;
    if (std::all_of(texts.begin(), texts.end(), isSafeText)) {
        Pipe client(wrapper, command);
        if (client)
            result = client.readLine(line) ? Line::read : Line::missing;
    }
    if (result != Line::read || line == kDatabaseLocked)
        counted(CORVANTA_FAILED);
    return result;
}

int call_cmd(char* cmd, int cmdSize, int cmdLen, char* answer, int answerSize, int level) {
    if (cmd == nullptr)
        return counted(CORVANTA_NO_COMMAND);
    char* const target = answer != nullptr ? answer : cmd;
    const int capacity = answer != nullptr ? answerSize : cmdSize;
    if (capacity < 1)
        return counted(CORVANTA_UNFIT);
    ShortAnswer text;
    TRY(runCommand({level, cmdSize}, text, cmd, cmdLen));
    deliver(text, target, capacity);
    return CORVANTA_OK;
}

int call_cmd(char* cmd, int cmdSize, int cmdLen) {
    return call_cmd(cmd, cmdSize, cmdLen, nullptr, 0, kLevelTraced);
}

int call_cmd(std::string cmd, std::string& answer, int level) {
    ShortAnswer text;
    const std::size_t length = strnlen(cmd.c_str(), kCommandSize);
    TRY(runCommand({level, kQuiet.commandSize}, text, cmd.c_str(), static_cast<int>(length)));
    return counted(guardedStatus([&] {
        answer = text.text;
        return CORVANTA_OK;
    }));
}
