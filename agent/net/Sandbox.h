#pragma once

#include <string>
#include <vector>

namespace agent::net {

/// How far this process is in its sandbox.
enum class Sandbox { none, callsOnly, whole };

/// Leaves this process, for good, what serving requests needs and nothing else.
///
/// It may make the calls of AllowedCalls; any other fails with EPERM, and the process goes on.
/// Where the kernel has Landlock, it may use what is open, write in one folder, and read /etc.
/// @param folder  whose files it may write
Sandbox enterSandbox(const std::string& folder);

/// @return the names of the calls that were refused since this was asked last, the last few where
/// they were many
std::vector<std::string> takeRefused();

} // namespace agent::net
