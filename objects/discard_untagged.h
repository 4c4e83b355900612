#pragma once

namespace kavo::snmp {

/// Gives the default bridge its filter, or none, by the stored setting, and stores that again.
int applyDiscardSetting();

} // namespace kavo::snmp
