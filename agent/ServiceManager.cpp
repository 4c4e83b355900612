#include "agent/ServiceManager.h"

#include <cstddef>
#include <cstdlib>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent {

void notifyServiceManager(const char* state) {
    const char* variable = std::getenv("NOTIFY_SOCKET");
    const std::string path = variable != nullptr ? variable : "";
    sockaddr_un address{};
    if (path.empty() || path.size() >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    if (path[0] == '@')
        address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return;
    const std::string text = state;
    // One that does not listen must not keep the agent waiting.
    sendto(descriptor, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
           reinterpret_cast<const sockaddr*>(&address), size);
    close(descriptor);
}

std::optional<std::chrono::microseconds> watchdogLimit() {
    const char* const variable = std::getenv("WATCHDOG_USEC");
    const long long limit = variable != nullptr ? std::strtoll(variable, nullptr, 10) : 0;
    if (limit <= 0)
        return std::nullopt;
    return std::chrono::microseconds(limit);
}

} // namespace agent
