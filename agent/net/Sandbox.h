#pragma once

#include <string>
#include <vector>

namespace agent::net {

/// How far this process is in its sandbox.
enum class Sandbox { none, callsOnly, whole };

/// Leaves this process, for good, what serving requests needs and nothing else.
///
/// Of the system calls that is AllowedCalls. Another one fails with EPERM, and the process goes on.
/// Of the files, where the kernel has Landlock, it is what is open, one folder and reading /etc.
/// @param folder  whose files it may write
Sandbox enterSandbox(const std::string& folder);

/// @return the names of the calls that were refused since this was asked last, the last few where
/// they were many
std::vector<std::string> takeRefused();

} // namespace agent::net
