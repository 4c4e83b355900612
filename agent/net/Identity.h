#pragma once

#include "agent/system/System.h"

#include <optional>
#include <string>
#include <vector>

namespace agent::net {

/// What managers know the engine by: its ID, the number of its starts, its users with their keys.
/// Whoever loses the ID or a key locks users out; whoever uses a number twice lets captured packets
/// in again. So all of it is safely stored before the first answer of a start, and nothing at a
/// stop.
///
/// The SNMP toolkit makes and understands it. Here it is lines of text, in one file of the state
/// folder. The toolkit never sees that file.
class Identity {
public:
    explicit Identity(System& system) : m_system(system) {}

    /// @return the lines that the toolkit is to begin with, none at the very first start; nothing
    /// where there are some that can't be read, for a new identity would take their place
    std::optional<std::string> load();

    /// Stores the toolkit's lines. What is stored stays as it is until they are safely there.
    /// @return whether they are
    bool store(const std::string& lines);

private:
    System& m_system;
    std::vector<std::string> m_leftovers; ///< of an older version, to be removed
};

} // namespace agent::net
