#pragma once

#include "agent/net/ManagerRequest.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

/// Turns the agent's values into the toolkit's variables, and its requests into the agent's.
namespace agent::net {

Oid nameOf(const netsnmp_variable_list& binding);

/// The object that an instance's name belongs to, whatever its row; null when there is none.
const Object* findObject(const Oid& name);

/// Puts a value into a variable, with the type that its object has.
void store(const Object& object, const Value& value, netsnmp_variable_list& binding);

/// What a set request asks for.
/// @param subagent  whether it came through a master, which doesn't say who asks
ManagerRequest toManagerRequest(const netsnmp_agent_request_info& info,
                                const netsnmp_request_info* requests, Clock::time_point came,
                                bool subagent);

/// Puts the error of an answer, if it has one, into the request.
void setAnswer(netsnmp_request_info* requests, const Answer& answer);

} // namespace agent::net
