#pragma once

#include "frame/Text.h"
#include "frame/TraceLevel.h"
#include "include/corvanta.h"

#include <optional>

/**
 * How the objects run the configuration database's client: a command is a
 * printf format and its values. A status other than CORVANTA_OK ends a sequence
 * unless the step says ignoreStatus(). A value that would end or change the
 * command gives CORVANTA_UNFIT and runs nothing.
 */
namespace kavo::snmp {

/** The answer of the last command that succeeded, without its newline. */
struct Reply {
    std::optional<int> number() const { return parseInt(text); }

    char text[30] = ""; // the runner takes no longer one
};

/** Runs a command that the log does not show. */
[[nodiscard, gnu::format(printf, 2, 3)]] int run(Reply& reply, const char* format, ...);

/** Runs a command at a trace level. */
[[nodiscard, gnu::format(printf, 3, 4)]] int runAt(int level, Reply& reply, const char* format,
                                                   ...);

/** Runs a command that the log shows with its answer; it may be one character longer. */
[[nodiscard, gnu::format(printf, 2, 3)]] int runTraced(Reply& reply, const char* format, ...);

inline void ignoreStatus(int) {}

/** The client numbers rows consecutively: the row inserted right after another has this Id. */
inline int nextRow(int id) {
    return static_cast<int>(static_cast<unsigned int>(id) + 1);
}

} // namespace kavo::snmp
