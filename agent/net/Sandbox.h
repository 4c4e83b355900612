#pragma once

namespace agent::net {

/// Takes from this process, for good, what serving requests never needs and
/// whoever took it over would want: to start programs, to touch other processes,
/// to gain privileges.
/// @return whether that could be done
bool enterSandbox();

} // namespace agent::net
