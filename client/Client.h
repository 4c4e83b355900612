#pragma once

#include "base/Text.h"

#include <corvanta.h>

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

class Wrapper;

/// How the library runs the configuration database's client. A command is a printf format and its
/// values; a text among them that would end or change the command gives CORVANTA_UNFIT, and nothing
/// runs.
namespace kavo::snmp {

/// A step of a sequence: a status other than CORVANTA_OK ends the sequence with it. A step whose
/// failure does not end it says ignoreStatus() instead.
#define TRY(step)                                                                                  \
    do {                                                                                           \
        if (const int stepStatus = (step))                                                         \
            return stepStatus;                                                                     \
    } while (false)

inline void ignoreStatus(int) {}

/// What the client printed last: terminated, without the newline; empty once a command has failed.
/// As many bytes as `tooLong`, newline included, are no answer. AnswerOf has the room.
struct Answer {
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    std::optional<int> number() const { return parseInt(text); }

    char* const text;
    const std::size_t tooLong;
    std::size_t size = 0; ///< as it was printed, newline included

protected:
    Answer(char* room, std::size_t limit) : text(room), tooLong(limit) {}
    ~Answer() = default;
};

template <std::size_t limit>
struct AnswerOf : Answer {
    AnswerOf() : Answer(room, limit) {}

    char room[limit + 1] = {};
};

using ShortAnswer = AnswerOf<29>; // to all commands but these
using KeyedAnswer = AnswerOf<99>;
using RowAnswer = AnswerOf<4095>;

/// Bytes of a command, its terminator included.
constexpr int kCommandSize = 200;
constexpr int kIntCommandSize = 100;

/// Levels of the runner's trace line, which is written below kTracedBelow.
constexpr int kLevelWrite = 3;
constexpr int kLevelTraced = 5;
constexpr int kTracedBelow = 6;
constexpr int kLevelUntraced = 7;

/// How a command is run: whether the log shows it with its answer, and how long it may be.
struct Manner {
    int level;
    int commandSize = kCommandSize;
};
constexpr Manner kTraced = {kLevelTraced};
constexpr Manner kQuiet = {kLevelUntraced, kCommandSize - 1};

/// Formats a command and runs it, again while the database is locked.
[[nodiscard, gnu::format(printf, 3, 4)]] int run(Manner manner, Answer& answer, const char* format,
                                                 ...);

/// The same for a command that is ready. A length that is not the manner's is CORVANTA_UNFIT.
[[nodiscard]] int runCommand(Manner manner, Answer& answer, const char* command, int length);

/// One run of the client, not counted. @return what its answer means
[[nodiscard]] int runOnce(int level, Answer& answer, const char* command);

/// Formats a command.
/// @return its length, as snprintf() gives it; kUnsafe when a text cannot stand in it
[[gnu::format(printf, 3, 4)]] int formatCommand(char* command, int size, const char* format, ...);
constexpr int kUnsafe = -1;

/// Copies an answer, cut to the capacity. @return the length that it then has
int deliver(const Answer& answer, char* target, int capacity);

enum class Line { read, missing, notStarted };

/// Runs a command through the Wrapper, whose functions report failures, and takes the answer's
/// first line, newline kept, whatever it says.
/// @param texts what the command is made of; when one is unsafe, nothing is started
Line readLine(Wrapper& wrapper, const std::string& command,
              std::initializer_list<std::string_view> texts, char (&line)[256]);

/// Reads a text column of the row with an Id, as config_string_access_by_id() does.
[[nodiscard]] int readText(char* buffer, int bufferSize, int* length, const char* table,
                           const char* column, int id);

/// Writes a text column of the row with an Id. The text may fill the command.
[[nodiscard]] int writeText(std::string_view text, const char* table, const char* column, int id);

/// Counts a command for client_failures() unless its status is CORVANTA_OK or CORVANTA_UNKNOWN_ROW.
/// @return the status
int counted(int status);

/// The client numbers rows consecutively: the row inserted right after another has this Id.
inline int nextRow(int id) {
    return static_cast<int>(static_cast<unsigned int>(id) + 1);
}

} // namespace kavo::snmp
