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

Sink::Sink(const Device& device) {
    device.write("agent.conf",
                 "rwcommunity test\ntrap2sink 127.0.0.1:" + std::to_string(number) + " test\n");
}

int Sink::count(int kind, const std::string& text, bool any) const {
    const std::string name = kind == 0 ? std::string("\x2b\x06\x01\x06\x03\x01\x01\x05\x01", 9)
                                       : std::string("\x01\x00", 2) + static_cast<char>(kind) + '0';
    int found = 0;
    const auto start = Clock::now();
    for (std::string packet;
         !(packet = receive(1500)).empty() || (any && found == 0 && msSince(start) < 120000);) {
        found += packet.find(name) != packet.npos && packet.find(text) != packet.npos;
        if (!packet.empty())
            last = packet;
    }
    return found;
}
