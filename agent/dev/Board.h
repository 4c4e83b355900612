#pragma once

#include "agent/change/Image.h"
#include "agent/dev/Programs.h"
#include "agent/link/Link.h"

namespace agent::dev {

/// What the network's side is shown, and the way there.
class Board {
public:
    Board(System& system, Programs& programs) : m_link(system), m_programs(programs) {}
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    /// Has the library say what the image means, and tells it.
    void show(Image& image);
    void publish();

    Snapshot next; ///< what the next one sent is a copy of

private:
    Link m_link;
    Programs& m_programs;
};

} // namespace agent::dev
