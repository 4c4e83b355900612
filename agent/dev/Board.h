#pragma once

#include "agent/change/Image.h"
#include "agent/dev/Programs.h"
#include "agent/link/Link.h"

namespace agent::dev {

/// The next snapshot for the network process, and the way to send it.
class Board {
public:
    Board(System& system, Programs& programs) : m_link(system), m_programs(programs) {}
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    /// Has the library read the values from an image, and sends them.
    void show(Image& image);
    void publish();

    Snapshot next; ///< sent as a copy

private:
    Link m_link;
    Programs& m_programs;
};

} // namespace agent::dev
