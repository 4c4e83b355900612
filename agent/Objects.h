#pragma once

#include "Model.h"
#include "Tables.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

/// The objects of CORVANTA-MIB as one table of data.
namespace agent {

using Clock = std::chrono::steady_clock;

/// A value on its way to or from a manager: a number, or a text where the object's type is one.
struct Value {
    long number = 0;
    std::string text;

    bool operator==(const Value& other) const {
        return number == other.number && text == other.text;
    }
};

class Object;

/// A scalar, or a column in one row.
struct Instance {
    const Object* object;
    int row; ///< 0 for a scalar
    std::vector<oid> name;
};

/// What becomes of the changes of managers; the numbers are those of the MIB.
enum class ChangeState { idle = 1, pending = 2, restoring = 3 };

/// Why a change was taken back without its manager asking again; likewise.
enum class RevertReason { none = 0, expired = 1, requested = 2, restarted = 3, failed = 4 };

struct Trial {
    ChangeState state = ChangeState::idle;
    std::chrono::seconds timeout{0}; ///< of the change that is pending
    Clock::time_point end;           ///< when it is taken back
};

/// What has happened on the device's side since the agent was started.
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

struct View {
    const Snapshot& snapshot;
    std::uint32_t setsRefused = 0;
};

constexpr long kLongestTrial = 86400; ///< seconds that a change may be pending
constexpr int kTracedLevel = 5;       ///< of commands that the library's log shows

/// Where an object's rows come from. Those of the agent's own always have a value.
enum class Source { agent, scalar, layer2, mapping, circuits, vlans };

/// What a set means for the agent itself, where it is no change of the device.
enum class Control { none, confirmTimeout, change };

/// An object: its name, type and source, and for those that can be written how.
class Object {
public:
    /// Takes a row's value from a view. @return whether there is one
    using Read = bool (*)(const View& view, int row, Value& value);
    /// Changes the value on the device; a corvanta_status. For the worker.
    using Write = int (*)(int row, const Value& value);

    /// @param arcs   below corvantaObjects, without the row
    /// @param label  its name in the MIB, for the log
    Object(std::initializer_list<oid> arcs, const char* label, u_char type, Source source,
           Read reader);

    /// The tables that the change can touch, and those that decide how.
    Object& written(Write writer, Tables tables);
    /// The same where it is only one row that has the instance's number as its Id.
    Object& writtenInOwnRow(Write writer, Table table);
    Object& controls(Control control);
    /// Limits of the number, or of the text's length.
    Object& range(long minimum, long maximum);

    const std::vector<oid>& name() const { return m_name; }
    const char* label() const { return m_label; }
    u_char type() const { return m_type; }
    Source source() const { return m_source; }
    bool read(const View& view, int row, Value& value) const { return m_read(view, row, value); }
    bool writable() const { return m_write != nullptr || m_control != Control::none; }
    int write(int row, const Value& value) const { return m_write(row, value); }
    Control control() const { return m_control; }
    Tables tables() const { return m_tables; }
    bool ownRow() const { return m_ownRow; }
    long minimum() const { return m_minimum; }
    long maximum() const { return m_maximum; }

private:
    std::vector<oid> m_name;
    const char* m_label;
    u_char m_type;
    Source m_source;
    Read m_read;
    Write m_write = nullptr;
    Control m_control = Control::none;
    Tables m_tables;
    bool m_ownRow = false;
    long m_minimum = 0;
    long m_maximum = 0;
};

/// corvantaObjects and a name below it.
std::vector<oid> below(std::initializer_list<oid> arcs);

/// The table, in order of OID.
const std::vector<Object>& objects();

/// The object that a variable is of, whatever its row; null when there is none.
const Object* findObject(const netsnmp_variable_list& binding);

/// The instances that a snapshot with this model has, in order of OID.
std::vector<Instance> listInstances(const Snapshot& snapshot);

/// Puts a value into a variable, with the type that its object has.
void store(const Object& object, const Value& value, netsnmp_variable_list& binding);

/// Whether a value is one that the object can be set to; an SNMP error, or 0.
int check(const Object& object, const Value& value);

/// Checks what a manager wants to write; an SNMP error, or 0 and the value.
int check(const Object& object, const netsnmp_variable_list& binding, Value& value);

} // namespace agent
