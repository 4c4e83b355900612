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

/// One of CORVANTA-MIB's, with its number there; those of a circuit have the numbers of its states.
struct Notification {
    enum class Kind { circuitUp = 1, circuitDown = 2, changeReverted = 3 };

    Kind kind;
    int row = 0;              ///< of the circuit in the table of interfaces
    RevertReason reason = {}; ///< of a change that was taken back
};

/// Decides what managers are notified of. What they have been told is kept in a file: what changes
/// while nobody can be told, or no agent runs, is told afterwards, once.
class Notifications {
public:
    Notifications(const Options& options, System& system);

    /// Whether anybody can be told now; until then, nothing is news.
    void setReachable(bool reachable) { m_reachable = reachable; }

    /// What is to be told now, and counts as told with that. One circuit is told of at most once a
    /// second; its last state comes in the end. What the first snapshot shows is no news.
    std::vector<Notification> news(const Snapshot& snapshot);

    /// Whether a state was told too short a while ago to tell its next one yet.
    bool holdsBack() const { return m_holdsBack; }

private:
    /// A circuit's name, empty for what is not told, and its state.
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
