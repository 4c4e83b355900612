#pragma once

#include "agent/change/Tables.h"
#include "agent/link/Snapshot.h"

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

/// The objects of CORVANTA-MIB as one table of data.
namespace agent {

/// What values are read from.
struct View {
    const Snapshot& snapshot;
    Clock::time_point now{}; ///< for ages, and what is left of a time
    std::uint32_t setsRefused = 0;
};

constexpr long kLongestTrial = 86400; ///< seconds that a change may be pending
constexpr int kTracedLevel = 5;       ///< of commands that the library's log shows

/// Where an object's rows come from. Those of the agent's own always have a value.
enum class Source { agent, scalar, layer2, mapping, circuits, vlans };

/// The types of the MIB's objects.
enum class Type { integer, unsigned32, counter, gauge, text };

/// What a set means for the agent itself, where it is no change of the device.
enum class Control { none, confirmTimeout, change };

/// An object: its name, type and source, and for those that can be written how.
class Object {
public:
    /// Takes a row's value from a view. @return whether there is one
    using Read = bool (*)(const View& view, int row, Value& value);

    /// @param arcs   below corvantaObjects, without the row
    /// @param label  its name in the MIB
    /// @param reader null for what stands in the model's values, under the label
    Object(std::initializer_list<unsigned long> arcs, const char* label, Type type, Source source,
           Read reader = nullptr);

    /// Makes it writable. @param tables  those that a set can touch, or that decide what it does
    Object& written(Tables tables);
    /// The same where a set touches a single row, whose Id is the instance's number.
    Object& writtenInOwnRow(Table table);
    Object& controls(Control control);
    /// Limits of the number, or of the text's length.
    Object& range(long minimum, long maximum);

    const Oid& name() const { return m_name; }
    const char* label() const { return m_label; }
    Type type() const { return m_type; }
    Source source() const { return m_source; }
    bool read(const View& view, int row, Value& value) const;
    bool writable() const { return !m_tables.empty() || m_control != Control::none; }
    Control control() const { return m_control; }
    Tables tables() const { return m_tables; }
    bool ownRow() const { return m_ownRow; }
    long minimum() const { return m_minimum; }
    long maximum() const { return m_maximum; }

private:
    Oid m_name;
    const char* m_label;
    Type m_type;
    Source m_source;
    Read m_read;
    Control m_control = Control::none;
    Tables m_tables;
    bool m_ownRow = false;
    long m_minimum = 0;
    long m_maximum = 0;
};

/// corvantaObjects and a name below it.
Oid below(std::initializer_list<unsigned long> arcs);

/// The table, in order of OID.
const std::vector<Object>& objects();

/// The instances that a snapshot with this model has, in order of OID.
std::vector<Instance> listInstances(const Snapshot& snapshot);

/// Whether a value is one that an object can be set to.
enum class Fit { fits, wrongLength, wrongValue };
Fit check(const Object& object, const Value& value);

} // namespace agent
