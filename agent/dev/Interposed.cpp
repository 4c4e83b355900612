#include "agent/dev/Interposed.h"

#include "agent/Log.h"
#include "agent/dev/Programs.h"

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <string>

namespace {

agent::dev::Programs* programs = nullptr;
std::string output; ///< of the program that the library reads now

} // namespace

void agent::dev::answerLibraryFrom(Programs* use) {
    programs = use;
}

/// Replaces the C library's popen() for libcorvanta, which reads one program at a time.
extern "C" FILE* popen(const char* command, const char*) {
    std::optional<std::string> said;
    if (programs != nullptr)
        said = programs->answer(command);
    if (!said) {
        errno = EAGAIN;
        return nullptr;
    }
    output = std::move(*said);
    return fmemopen(output.data(), output.size(), "r");
}

extern "C" int pclose(FILE* stream) {
    return fclose(stream);
}

/// Likewise, for its pauses.
extern "C" unsigned sleep(unsigned seconds) {
    if (programs != nullptr)
        programs->pause(std::chrono::seconds(seconds));
    return 0;
}

/// Likewise, so that only the wanted lines of the library are logged.
extern "C" void syslog(int priority, const char* format, ...) {
    if (!agent::wantsLine(priority))
        return;
    va_list values;
    va_start(values, format);
    vsyslog(priority, format, values);
    va_end(values);
}
