#include "tests/agent/site/Sink.h"

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
