#pragma once

#include <netinet/in.h>

#include <string>

/// A UDP socket on loopback, with a port that the kernel gives.
class Port {
public:
    Port();
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    ~Port();

    static sockaddr_in loopback(int port);

    void send(int port, const std::string& packet) const;

    /// @return the next packet; empty when none comes in time
    std::string receive(int ms) const;

    const int descriptor;
    int number = 0;
};
