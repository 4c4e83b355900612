#pragma once

namespace kavo::snmp {

/**
 * Counts a client command that ended with a status other than CORVANTA_OK and
 * CORVANTA_UNKNOWN_ROW; once per command, whoever ran it. See client_failures().
 * @return the status
 */
int counted(int status);

} // namespace kavo::snmp
