#pragma once

#include "tests/agent/site/Device.h"

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

constexpr int kUp = 1;
constexpr int kDown = 2;

/// Where an agent's notifications arrive.
class Sink : public Port {
public:
    /// Lets agents that are started in the folder send theirs here.
    explicit Sink(const Device& device);

    /// Waits for those of a kind, 0 for coldStart, with a text in them. @param any  whether there
    /// has to be one. @return how many there were until none came for longer than the agent waits
    int count(int kind, const std::string& text = "", bool any = true) const;

    mutable std::string last;
};
