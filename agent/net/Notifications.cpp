#include "agent/net/Notifications.h"

#include "agent/Log.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPause{1}; ///< between two notifications of one circuit

} // namespace

Notifications::Notifications(const std::string& folder) : m_file(folder + "/told.states") {
    std::ifstream file(m_file);
    m_known = file.is_open();
    std::string name;
    for (int state = 0; file >> name >> state;)
        m_states[name] = state;
}

std::vector<int> Notifications::news(const std::vector<State>& states) {
    std::vector<int> places;
    m_holdsBack = false;
    if (!m_reachable && m_known)
        return places;
    const auto now = Clock::now();
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
        places.push_back(static_cast<int>(i));
    }
    m_known = true;
    for (auto told = m_states.begin(); told != m_states.end();) {
        const bool there = std::any_of(states.begin(), states.end(), [&](const State& state) {
            return state.first == told->first;
        });
        changed = changed || !there;
        told = there ? std::next(told) : m_states.erase(told);
    }
    if (changed)
        save();
    return places;
}

bool Notifications::isNews(std::uint32_t count) {
    if (!m_count)
        m_count = count;
    if (!m_reachable || count == *m_count)
        return false;
    m_count = count;
    return true;
}

void Notifications::save() const {
    const std::string beside = m_file + ".new";
    std::ofstream file(beside);
    for (const auto& [name, state] : m_states)
        file << name << ' ' << state << '\n';
    file.close();
    if (!file || std::rename(beside.c_str(), m_file.c_str()) != 0)
        log(LOG_WARNING, "cannot write " + m_file);
}

} // namespace agent
