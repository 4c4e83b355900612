#pragma once

namespace kavo::snmp {

/** Levels that the command runner is called with; below tracedBelow it writes its trace line. */
enum TraceLevel : int { levelWrite = 3, levelTraced = 5, tracedBelow = 6, levelUntraced = 7 };

} // namespace kavo::snmp
