#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// What the process that owns the device shows to the one that faces the network.
namespace agent {

using Clock = std::chrono::steady_clock;

constexpr int kUnits = 8; ///< ATM circuits, and VLAN objects; both are numbered from 1

/// A value of an object: a number, or a text where the object's type is one.
struct Value {
    long number = 0;
    std::string text;

    bool operator==(const Value& other) const {
        return number == other.number && text == other.text;
    }
};

/// Rates of the DSL line, as the tool prints them; 0 for one that it does not print.
struct Rates {
    std::uint32_t actualDown = 0;
    std::uint32_t actualUp = 0;
    std::uint32_t attainableDown = 0;
    std::uint32_t attainableUp = 0;
};

struct Layer2If {
    std::string name;
    int state; ///< an ly2State
};

struct IfMapping {
    int index;
    std::string physical;
    std::string logical;
};

struct Model {
    Rates rates;
    std::vector<Layer2If> layer2;
    std::vector<IfMapping> mapping;
    /// All others, by the object's name in the MIB and the row, which is 0 for a scalar. A value is
    /// missing where the device has none or the library cannot read it.
    std::map<std::string, std::map<int, Value>> values;
};

class Object; // link/Objects.h

using Oid = std::vector<unsigned long>; ///< an object identifier, as the toolkit has it

/// A scalar, or a column in one row.
struct Instance {
    const Object* object;
    int row; ///< 0 for a scalar
    Oid name;
};

/// The state of managers' changes; the numbers are those of the MIB.
enum class ChangeState { idle = 1, pending = 2, restoring = 3 };

/// Why a change on trial was taken back; likewise.
enum class RevertReason { none = 0, expired = 1, requested = 2, restarted = 3, failed = 4 };

struct Trial {
    ChangeState state = ChangeState::idle;
    std::chrono::seconds timeout{0}; ///< of the change that is pending
    Clock::time_point end;           ///< when it is taken back
};

/// What has happened in the device process since the agent was started.
struct Counters {
    std::uint32_t refreshesDone = 0;
    std::uint32_t refreshesFailed = 0;
    std::uint32_t clientsKilled = 0;
    std::uint32_t journalsDamaged = 0;
    std::uint32_t rowsNotRestored = 0;
    std::uint32_t reverts = 0; ///< changes that were taken back for a reason to be told

    Counters& operator+=(const Counters& other);
};

/// What requests are answered from: made by the worker, then never changed.
struct Snapshot {
    Model model;
    std::vector<Instance> instances; ///< those that the model has a value for, in order of OID
    bool complete = false;           ///< whether all of the model has ever been loaded
    Clock::time_point refreshed;     ///< end of the last good refresh; without one, the start
    Counters counters;
    Trial trial;
    bool undoing = false; ///< whether a set that missed its deadline is not yet taken back
    RevertReason revertReason = RevertReason::none; ///< of the last that was taken back
};

} // namespace agent
