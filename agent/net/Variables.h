#pragma once

#include "agent/link/Objects.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

/// The MIB's objects as the toolkit's variables.
namespace agent {

/// The object that a variable is of, whatever its row; null when there is none.
const Object* findObject(const netsnmp_variable_list& binding);

/// Puts a value into a variable, with the type that its object has.
void store(const Object& object, const Value& value, netsnmp_variable_list& binding);

/// Checks what a manager wants to write; an SNMP error, or 0 and the value.
int check(const Object& object, const netsnmp_variable_list& binding, Value& value);

} // namespace agent
