#pragma once

#include "agent/change/Image.h"
#include "agent/link/Messages.h"

namespace agent {

/// What the network's side is shown, and the way there.
class Board {
public:
    explicit Board(Link link) : m_link(link) {}
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    /// Has the library say what the image means, and tells it.
    void show(Image& image);
    void publish();

    Snapshot next; ///< what the next one sent is a copy of

private:
    const Link m_link;
};

} // namespace agent
