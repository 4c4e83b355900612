#pragma once

#include "Model.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <chrono>
#include <cstddef>
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

struct Object;

/// A scalar, or a column in one row.
struct Instance {
    const Object* object;
    int row; ///< 0 for a scalar
    std::vector<oid> name;
};

/// What requests are answered from: made by the worker, then never changed.
struct Snapshot {
    Model model;
    std::vector<Instance> instances; ///< those that the model has a value for, in order of OID
    bool complete = false;           ///< whether all of the model has ever been loaded
    Clock::time_point refreshed;     ///< end of the last good refresh; without one, the start
    std::uint32_t refreshesDone = 0;
    std::uint32_t refreshesFailed = 0;
};

struct View {
    const Snapshot& snapshot;
    std::uint32_t setsRefused;
};

enum class Rows { health, scalar, layer2, mapping, circuits, vlans };

struct Object {
    std::vector<oid> name; ///< without the row
    u_char type;
    Rows rows;
    /// @return whether the row has such a value
    bool (*read)(const View& view, int row, Value& value);

    // Only for objects that can be written:

    /// Reads the value from the database, or changes it there; a corvanta_status. Worker only.
    int (*access)(access_type access, int row, Value& value) = nullptr;
    long minimum = 0; ///< of the number, or of the text's length
    long maximum = 0;
    unsigned before = 0;     ///< parts of the model to load before a set: what its handler trusts
    unsigned after = 0;      ///< parts to load after it: what it can have changed
    bool followsWan = false; ///< whether sets of other objects change it, with kDefaultWan after
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

/// Checks what a manager wants to write; an SNMP error, or 0 and the value.
int check(const Object& object, const netsnmp_variable_list& binding, Value& value);

} // namespace agent
