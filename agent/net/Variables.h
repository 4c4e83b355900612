#pragma once

#include "agent/net/ManagerRequest.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

/// The MIB's objects as the toolkit's variables, and its requests as the agent's.
namespace agent::net {

Oid nameOf(const netsnmp_variable_list& binding);

/// The object that a name is of, whatever its row; null when there is none.
const Object* findObject(const Oid& name);

/// Puts a value into a variable, with the type that its object has.
void store(const Object& object, const Value& value, netsnmp_variable_list& binding);

/// What a set request asks for.
/// @param subagent  whether a master has sent it, which doesn't tell for whom
ManagerRequest toManagerRequest(const netsnmp_agent_request_info& info,
                                const netsnmp_request_info* requests, Clock::time_point came,
                                bool subagent);

/// Gives an answer to the request that it is for. One without an error changes nothing.
void setAnswer(netsnmp_request_info* requests, const Answer& answer);

} // namespace agent::net
