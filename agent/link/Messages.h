#pragma once

#include "agent/link/Objects.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// What the two processes of the agent tell each other: the one that faces the
/// network, and the one that owns the device.
namespace agent {

/// One value to write.
struct Change {
    const Object* object;
    int row;
    Value value;
    std::size_t place; ///< of its variable in the request
};

/// The first change whose value a snapshot does not show; null when it shows all. Of several of one
/// object the last counts.
const Change* firstMissing(const std::vector<Change>& changes, const Snapshot& snapshot);

/// What a manager says of the change that is pending; the numbers are those of the MIB.
enum class Verdict { notGiven = 0, none = 1, confirm = 2, revert = 3 };

/// What became of a set.
enum class Outcome {
    done,
    refused,      ///< nothing has changed, or all of it was taken back; the reason tells why
    late,         ///< it missed its deadline; nothing of it stays
    notUndone,    ///< it failed, and something of it could not be taken back
    undoing,      ///< it failed, and is being taken back
    unavailable,  ///< now: another change is pending or taken back, or there is too little time
    inconsistent, ///< a verdict, or more time, without a change that is pending
};

/// What one set request asks for, all or nothing.
struct SetRequest {
    std::uint64_t id;
    std::uint64_t incarnation;     ///< of the process that it is for; the next has not been asked
    Clock::time_point deadline;    ///< the clock is the machine's, the same for both processes
    std::vector<Change> changes;   ///< in the order in which they are made
    std::chrono::seconds trial{0}; ///< taken back after this time, unless confirmed; 0: to stay
    Verdict verdict = Verdict::notGiven;
};

/// Asks for a set that was made to be taken back: another part of its request has failed.
struct TakeBack {
    std::uint64_t id;
    std::uint64_t incarnation; ///< likewise
};

/// Why a set was refused.
enum class Reason {
    none,
    failed,
    locked,     ///< the database, to the end
    unknownRow, ///< it has gone since the last refresh
    noCommand,
    badIndex,
    unfit, ///< a value can't stand in a command
};

struct SetResult {
    std::uint64_t id;
    Outcome outcome;
    Reason reason;     ///< of what ended it
    std::size_t place; ///< of the variable that ended it
};

/// The first message of each process, after every start.
struct Hello {
    std::uint64_t incarnation = 0; ///< tells one process that owns the device from the next
    bool takesBack = false;        ///< whether it has found a change that was half done
    std::uint64_t made = 0;        ///< else the last set that stays, be it of the process before
};

using Message = std::variant<Hello, SetRequest, TakeBack, SetResult, Snapshot>;

/// As a packet. Both sides are the same program: a value looks the same on both.
std::string pack(const Message& message);

/// @return nothing when it is malformed, or names an object that does not exist
std::optional<Message> unpack(const std::string& packet);

} // namespace agent
