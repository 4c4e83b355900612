#include "agent/net/HeldRequests.h"

#include <algorithm>
#include <utility>

// Parts of the toolkit that no header declares: the set that others wait for, the requests that
// wait, and what handles one of them.
extern "C" {
extern netsnmp_agent_session* netsnmp_processing_set;    // NOLINT(readability-identifier-naming)
extern netsnmp_agent_session* netsnmp_agent_queued_list; // NOLINT(readability-identifier-naming)
int netsnmp_handle_request(netsnmp_agent_session* asp, int status);
}

namespace agent::net {

namespace {

/// Of the sets that wait: hundreds of single values, or several times all that can be set.
constexpr std::size_t kMostBytes = 1 << 20;

/// What a request's variables take in memory. The toolkit has them twice.
std::size_t sizeOf(const netsnmp_pdu& request) {
    std::size_t size = 0;
    for (const auto* each = request.variables; each != nullptr; each = each->next_variable)
        size += 2 * (sizeof *each + each->val_len);
    return size;
}

/// Whether the connection that a request came over is closed. To be asked before the toolkit's next
/// round, which forgets the connection and may put another one in its place.
bool hasHungUp(const netsnmp_agent_session& asked) {
    void* const session = snmp_sess_pointer(asked.session);
    const netsnmp_transport* const transport =
        session != nullptr ? snmp_sess_transport(session) : nullptr;
    return transport == nullptr || transport->sock < 0;
}

} // namespace

void HeldRequests::delegate(netsnmp_mib_handler& handler,
                            netsnmp_handler_registration& registration,
                            netsnmp_agent_request_info& info, netsnmp_request_info* requests) {
    for (auto* request = requests; request != nullptr; request = request->next)
        request->delegated = REQUEST_IS_DELEGATED;
    m_delegated = netsnmp_create_delegated_cache(&handler, &registration, &info, requests, nullptr);
}

netsnmp_delegated_cache* HeldRequests::takeDelegated() {
    netsnmp_delegated_cache* const set = std::exchange(m_delegated, nullptr);
    if (set == nullptr || netsnmp_handler_check_cache(set) == nullptr)
        return set;
    for (auto* request = set->requests; request != nullptr; request = request->next)
        request->delegated = REQUEST_IS_NOT_DELEGATED;
    return set;
}

bool HeldRequests::dropDelegated() {
    if (m_delegated == nullptr || !hasHungUp(*m_delegated->reqinfo->asp))
        return false;
    netsnmp_agent_session* const asked = m_delegated->reqinfo->asp;
    netsnmp_free_delegated_cache(std::exchange(m_delegated, nullptr));
    free_agent_snmp_session(asked);
    return true;
}

bool HeldRequests::release() {
    const auto now = m_system.now();
    const auto before = std::exchange(m_kept, {});
    netsnmp_processing_set = nullptr;
    const bool dropped = dropDelegated();
    std::size_t size = 0;
    for (auto** place = &netsnmp_agent_queued_list; *place != nullptr;) {
        netsnmp_agent_session* const kept = *place;
        const bool isSet = kept->pdu->command == SNMP_MSG_SET;
        // One too many gets no answer, as if it were lost: it may repeat one that waits, whose
        // manager would take an error for its end.
        const bool tooMany = isSet && size >= kMostBytes;
        if (tooMany)
            m_lines.log(now, LOG_WARNING, "a set is dropped, since too many others wait");
        if (tooMany || hasHungUp(*kept)) {
            *place = kept->next;
            free_agent_snmp_session(kept);
        } else if (isSet) {
            size += sizeOf(*kept->pdu);
            const auto came = before.find(kept);
            m_kept[kept] = came == before.end() ? now : came->second;
            place = &kept->next;
        } else {
            *place = kept->next;
            kept->next = nullptr;
            netsnmp_handle_request(kept, kept->status);
        }
    }
    // Only sets are left. The first of them is next, whatever arrives meanwhile.
    netsnmp_processing_set = netsnmp_agent_queued_list;
    return dropped;
}

Clock::time_point HeldRequests::arrivalOf(const netsnmp_agent_session* asked) const {
    const auto kept = m_kept.find(asked);
    return kept == m_kept.end() ? m_system.now() : kept->second;
}

Clock::time_point HeldRequests::oldest() const {
    auto oldest = m_system.now();
    for (const auto& [asked, came] : m_kept)
        oldest = std::min(oldest, came);
    return oldest;
}

} // namespace agent::net
