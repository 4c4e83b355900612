#include "agent/link/Link.h"

namespace agent {

std::optional<Message> Link::receive() {
    const auto packet = m_system.receive();
    if (!packet || packet->empty())
        return std::nullopt;
    auto message = unpack(*packet);
    if (!message)
        m_lines.log(m_system.now(), LOG_ERR,
                    "a malformed message from the other process is dropped");
    return message;
}

} // namespace agent
