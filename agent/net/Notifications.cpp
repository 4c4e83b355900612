#include "agent/net/Notifications.h"

#include "agent/Log.h"

#include <algorithm>
#include <sstream>

namespace agent::net {

namespace {

constexpr const char* kFile = "told.states";
constexpr std::chrono::seconds kPause{1}; ///< between two notifications of one circuit

} // namespace

Notifications::Notifications(const Options& options, System& system)
    : m_options(options), m_system(system) {
    std::optional<std::string> text;
    m_system.load(kFile, text);
    m_known = text.has_value();
    std::istringstream file(text.value_or(""));
    std::string name;
    for (int state = 0; file >> name >> state;)
        m_states[name] = state;
}

std::vector<Notification> Notifications::news(const Snapshot& snapshot) {
    std::vector<Notification> list;
    if (!m_options.notifications)
        return list;
    if (isNews(snapshot.counters.reverts))
        list.push_back({Notification::Kind::changeReverted, 0, snapshot.revertReason});
    if (!snapshot.complete)
        return list;
    std::vector<State> states;
    for (const Layer2If& row : snapshot.model.layer2) {
        const bool circuit = row.name.compare(0, 2, "VC") == 0; // the others go with it
        states.emplace_back(circuit ? row.name : "", row.state);
    }
    for (const std::size_t place : news(states))
        list.push_back({static_cast<Notification::Kind>(states[place].second),
                        static_cast<int>(place) + 1,
                        {}});
    return list;
}

/// @return the places of the states that are to be told
std::vector<std::size_t> Notifications::news(const std::vector<State>& states) {
    std::vector<std::size_t> places;
    m_holdsBack = false;
    if (!m_reachable && m_known)
        return places;
    const auto now = m_system.now();
    bool changed = !m_known;
    for (std::size_t i = 0; i < states.size(); ++i) {
        const auto& [name, state] = states[i];
        const auto told = m_states.find(name);
        const bool again =
            std::any_of(states.begin(), states.begin() + static_cast<std::ptrdiff_t>(i),
                        [&name = name](const State& other) { return other.first == name; });
        if (name.empty() || again || (told != m_states.end() && told->second == state))
            continue; // of two with one name, the first counts
        Clock::time_point& notBefore = m_notBefore[name];
        if (now < notBefore) {
            m_holdsBack = true;
            continue;
        }
        m_states[name] = state;
        changed = true;
        if (!m_known)
            continue;
        notBefore = now + kPause;
        places.push_back(i);
    }
    m_known = true;
    if (forgetOthers(states) || changed)
        save();
    return places;
}

/// Forgets circuits that are gone. @return whether any is
bool Notifications::forgetOthers(const std::vector<State>& states) {
    const std::size_t before = m_states.size();
    for (auto told = m_states.begin(); told != m_states.end();) {
        const bool there = std::any_of(states.begin(), states.end(), [&](const State& state) {
            return state.first == told->first;
        });
        told = there ? std::next(told) : m_states.erase(told);
    }
    return m_states.size() != before;
}

/// Whether a change was taken back since the last one that was told, or since the start.
bool Notifications::isNews(std::uint32_t reverts) {
    if (!m_reverts)
        m_reverts = reverts;
    if (!m_reachable || reverts == *m_reverts)
        return false;
    m_reverts = reverts;
    return true;
}

void Notifications::save() {
    std::string text;
    for (const auto& [name, state] : m_states)
        text += name + ' ' + std::to_string(state) + '\n';
    if (!m_system.store(kFile, text))
        log(LOG_WARNING, "cannot write " + m_options.state + "/" + kFile);
}

} // namespace agent::net
