#include "tests/agent/site/Port.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

Port::Port() : descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(descriptor, generic, size) == 0 && getsockname(descriptor, generic, &size) == 0)
        number = ntohs(address.sin_port);
}

Port::~Port() {
    close(descriptor);
}

sockaddr_in Port::loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

void Port::send(int port, const std::string& packet) const {
    const sockaddr_in to = loopback(port);
    sendto(descriptor, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to),
           sizeof to);
}

std::string Port::receive(int ms) const {
    pollfd waiting{descriptor, POLLIN, 0};
    if (poll(&waiting, 1, ms) != 1)
        return "";
    std::string packet(4096, '\0');
    const ssize_t length = recv(descriptor, packet.data(), packet.size(), 0);
    packet.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return packet;
}
