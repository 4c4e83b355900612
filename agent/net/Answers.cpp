#include "agent/net/Answers.h"

#include <algorithm>
#include <iterator>

namespace agent::net {

namespace {

constexpr std::chrono::seconds kRepeated{60}; ///< for how long a request may come again
constexpr std::size_t kMostBytes = 4 << 20;   ///< thousands of sets, a dozen of the longest
constexpr std::size_t kOverhead = 256;        ///< of an answer, with its places in memory

template <class Names>
std::size_t sizeOf(const Names& names) {
    return names.sender.size() + names.identity.size() + kOverhead;
}

} // namespace

bool Answers::makeRoom(const ManagerRequest& request) {
    const std::size_t size = sizeOf(request);
    for (auto entry = m_entries.begin(); m_bytes + size > kMostBytes && entry != m_entries.end();)
        entry = entry->asked ? std::next(entry) : erase(entry);
    return m_bytes + size <= kMostBytes;
}

void Answers::remember(const ManagerRequest& request, const Answer& answer, Clock::time_point now,
                       bool asked) {
    if (request.sender.empty() || !makeRoom(request))
        return;
    m_entries.push_back({request.sender, request.identity, answer, now, asked});
    m_bytes += sizeOf(request);
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
    for (auto entry = m_entries.begin(); entry != m_entries.end();)
        entry = entry->sender == request.sender ? erase(entry) : std::next(entry);
}

void Answers::forgetBefore(Clock::time_point came) {
    while (!m_entries.empty() && came - m_entries.front().when >= kRepeated)
        erase(m_entries.begin());
}

Answers::Entries::iterator Answers::erase(Entries::iterator entry) {
    m_bytes -= sizeOf(*entry);
    return m_entries.erase(entry);
}

} // namespace agent::net
