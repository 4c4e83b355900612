#pragma once

#include "agent/Options.h"
#include "agent/link/Snapshot.h"
#include "agent/system/System.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace agent::net {

/// A notification of CORVANTA-MIB. The kinds have its numbers there; those of a circuit are also
/// the numbers of the circuit's states.
struct Notification {
    enum class Kind { circuitUp = 1, circuitDown = 2, changeReverted = 3 };

    Kind kind;
    int row = 0;              ///< of the circuit in the table of interfaces
    RevertReason reason = {}; ///< of a change that was taken back
};

/// Decides what managers are notified of. A file keeps the states that they were told last, so that
/// what changes while nobody can be told, or no agent runs, is told afterwards, once.
class Notifications {
public:
    Notifications(const Options& options, System& system);

    /// Whether notifications reach anybody now. While they don't, there is nothing to send.
    void setReachable(bool reachable) { m_reachable = reachable; }

    /// The notifications to send now; they count as sent from then on. A circuit has one a second
    /// at most, and in the end one for its last state. The first snapshot ever has none.
    std::vector<Notification> news(const Snapshot& snapshot);

    /// Whether a circuit has changed again within a second, which is told later.
    bool holdsBack() const { return m_holdsBack; }

private:
    /// A circuit's name, or an empty one for an interface that is not told of, and its state.
    using State = std::pair<std::string, int>;

    bool isNews(std::uint32_t reverts);
    std::vector<std::size_t> news(const std::vector<State>& states);
    bool forgetOthers(const std::vector<State>& states);
    void save();

    const Options& m_options;
    System& m_system;
    bool m_known = false; ///< whether there was a file
    bool m_reachable = true;
    bool m_holdsBack = false;
    std::map<std::string, int> m_states; ///< as they were told
    std::map<std::string, Clock::time_point> m_notBefore;
    std::optional<std::uint32_t> m_reverts; ///< of which was told
};

} // namespace agent::net
