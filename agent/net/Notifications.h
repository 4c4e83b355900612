#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace agent {

/// What notifications have told. It is kept in a file: what has changed while
/// nobody could be told, or no agent ran, is told afterwards, once.
class Notifications {
public:
    using State =
        std::pair<std::string, int>; ///< a name, empty for what is not told, and an ly2State

    /// @param folder where the file is
    explicit Notifications(const std::string& folder);

    /// Whether anybody can be told now; until then, nothing is news.
    void setReachable(bool reachable) { m_reachable = reachable; }

    /// The places of the states that are to be told now, and are told with that. The same name is
    /// at most once a second; its last state comes in the end. The first of all are no news.
    std::vector<int> news(const std::vector<State>& states);

    /// Whether a count is higher than the last one, the first of all left out.
    bool isNews(std::uint32_t count);

    /// Whether a state was told too short a while ago to tell its next one yet.
    bool holdsBack() const { return m_holdsBack; }

private:
    void save() const;

    std::string m_file;
    bool m_known = false; ///< whether there was a file
    bool m_reachable = true;
    bool m_holdsBack = false;
    std::map<std::string, int> m_states;
    std::map<std::string, std::chrono::steady_clock::time_point> m_notBefore;
    std::optional<std::uint32_t> m_count;
};

} // namespace agent
