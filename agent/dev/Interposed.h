#pragma once

namespace agent::dev {

class Programs;

/// The library runs programs through popen(), pauses with sleep() and logs through syslog(). This
/// program has functions of its own in their place; nothing else of the C library is replaced.
///
/// @param programs  what answers the library from now on; null for nothing
void answerLibraryFrom(Programs* programs);

} // namespace agent::dev
