#include "agent/net/Connections.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace agent::net {

namespace {

constexpr int kDescriptors = 256;        ///< of the process
constexpr std::size_t kConnections = 64; ///< more than managers need, less than the descriptors
constexpr unsigned kSilence = 60000;     ///< ms; a manager connects anew
constexpr std::chrono::milliseconds kPause{100};

/// Whether a descriptor is a manager's connection, and for how many ms it was silent; 0 for one
/// from the machine itself, which is only counted.
bool isStream(int descriptor, unsigned& silence) {
    int listens = 0;
    int kind = 0;
    sockaddr_storage peer{};
    socklen_t size = sizeof listens;
    if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &kind, &size) != 0 || kind != SOCK_STREAM ||
        getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) != 0 || listens != 0)
        return false;
    size = sizeof peer;
    if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0)
        return false;
    tcp_info info{};
    size = sizeof info;
    silence = getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) == 0
                  ? info.tcpi_last_data_recv
                  : 0;
    return true;
}

/// Whether it takes no answers: its manager doesn't read them.
bool isFull(int descriptor) {
    pollfd stream{descriptor, POLLOUT, 0};
    return poll(&stream, 1, 0) == 0;
}

} // namespace

Connections::Connections(const System& system) : m_system(system) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, kDescriptors);
    setrlimit(RLIMIT_NOFILE, &limit);
}

void Connections::limit() {
    const auto now = m_system.now();
    if (now < m_due)
        return;
    m_due = now + kPause;
    std::vector<std::pair<unsigned, int>> connections; // by their silence
    for (int descriptor = 3; descriptor < kDescriptors; ++descriptor)
        if (unsigned silence = 0; isStream(descriptor, silence))
            connections.emplace_back(silence, descriptor);
    std::sort(connections.begin(), connections.end());
    for (std::size_t i = 0; i < connections.size(); ++i) {
        const auto& [silence, descriptor] = connections[i];
        if (silence > kSilence || i >= kConnections || isFull(descriptor))
            shutdown(descriptor, SHUT_RDWR); // the toolkit sees its end, and forgets it
    }
}

} // namespace agent::net

/// As the toolkit calls it, whose sends would wait for ever for a manager that doesn't read.
extern "C" int accept(int listener, sockaddr* peer, socklen_t* size) {
    return accept4(listener, peer, size, SOCK_NONBLOCK | SOCK_CLOEXEC);
}
