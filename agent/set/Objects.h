#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// What corvanta-set knows of CORVANTA-MIB: a table that the build makes of the module.
namespace trial {

/// A number, or the octets of a text.
using Value = std::variant<std::int64_t, std::string>;

struct Word {
    std::int64_t number;
    std::string_view text;
};

struct Object {
    std::string_view name;
    std::vector<oid> id;
    oid lastRow; ///< its rows are 1 to this; 0 when it has none
    unsigned char type;
    std::int64_t least, most; ///< of the number, or of the text's length
    std::vector<Word> words;  ///< that stand for numbers
    bool isWritable;
};

const std::vector<Object>& objects();

/// An object, or one row of it.
struct Instance {
    const Object* object;
    oid row; ///< 0 for an object without rows
};

Instance instance(std::string_view name, oid row = 0);
std::vector<oid> idOf(const Instance& instance);
std::string nameOf(const Instance& instance);

/// A value as people write it: a word where there is one, what cannot be printed escaped.
std::string textOf(const Object& object, const Value& value);

/// What an object can be set to, such as "true or false" or "0 to 255".
std::string permitted(const Object& object);

struct Assignment {
    Instance instance;
    Value value;
};

/// Takes OBJECT=VALUE. Throws Misuse when CORVANTA-MIB does not allow it.
Assignment parseAssignment(const std::string& text);

/// Prints what can be set, with its rows and values.
void listObjects();

/// Wrong usage, in a sentence.
struct Misuse {
    std::string text;
};

} // namespace trial
