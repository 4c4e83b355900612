#include "agent/net/Answers.h"

#include <algorithm>

namespace agent::net {

namespace {

constexpr std::chrono::seconds kRepeated{60}; ///< for how long a request may come again
constexpr std::size_t kMost = 256;

} // namespace

void Answers::remember(const ManagerRequest& request, const Answer& answer, Clock::time_point now) {
    if (request.sender.empty())
        return;
    while (m_entries.size() >= kMost)
        m_entries.pop_front();
    m_entries.push_back({request.sender, request.identity, answer, now});
}

std::optional<Answer> Answers::find(const ManagerRequest& request) const {
    const auto found = std::find_if(m_entries.begin(), m_entries.end(), [&](const Entry& entry) {
        return entry.identity == request.identity && request.came - entry.when < kRepeated;
    });
    if (found == m_entries.end())
        return std::nullopt;
    return found->answer;
}

void Answers::forget(const ManagerRequest& request) {
    m_entries.erase(
        std::remove_if(m_entries.begin(), m_entries.end(),
                       [&](const Entry& entry) { return entry.sender == request.sender; }),
        m_entries.end());
}

void Answers::forgetBefore(Clock::time_point came) {
    while (!m_entries.empty() && came - m_entries.front().when >= kRepeated)
        m_entries.pop_front();
}

} // namespace agent::net
